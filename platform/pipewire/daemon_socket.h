#pragma once

#include "platform/file_descriptor.h"

#include <filesystem>

namespace nimbrale::pipewire {

/// Where the daemon's socket is, or would be, as the library looks for it; empty where the environment names no folder.
[[nodiscard]] std::filesystem::path daemonSocket();

/// Tells when a socket of that name may have appeared: the descriptor is readable then.
class SocketWatch {
public:
    explicit SocketWatch(const std::filesystem::path& socket);

    /// -1 where the socket's folder cannot be watched.
    [[nodiscard]] int descriptor() const { return events_.get(); }
    /// Whether the socket was among what appeared in its folder since the last call.
    [[nodiscard]] bool hasAppeared();

private:
    std::filesystem::path::string_type name_;
    FileDescriptor events_;
};

} // namespace nimbrale::pipewire
