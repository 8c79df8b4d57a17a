#pragma once

#include "platform/x11/connection.h"

#include <cstdint>

namespace nimbrale::x11 {

/// Selects further events (XCB_EVENT_MASK_…) of the root window. The server keeps one mask for each connection, so
/// whoever shares a connection adds to what others selected instead of replacing it. Waits for the server.
void addRootEventMask(Connection& connection, std::uint32_t mask);

} // namespace nimbrale::x11
