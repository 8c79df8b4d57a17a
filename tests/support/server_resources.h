#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <sys/types.h>

struct xcb_connection_t;

namespace nimbrale::test {

/// How many things of each type ("PIXMAP", "PICTURE", "DamageExt") all clients of a process have in the server, as
/// X-Resource tells through any connection. Types without a name are left out.
[[nodiscard]] std::map<std::string, std::uint32_t> serverResources(xcb_connection_t* connection, pid_t process);

/// How much memory of a process is resident.
[[nodiscard]] std::uint64_t residentBytes(pid_t process);

} // namespace nimbrale::test
