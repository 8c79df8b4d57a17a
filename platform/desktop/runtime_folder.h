#pragma once

#include "platform/file_descriptor.h"
#include "platform/result.h"

#include <filesystem>

namespace nimbrale {

/// A folder for sockets and locks of this user's running programs, open.
struct RuntimeFolder {
    FileDescriptor descriptor;
    std::filesystem::path path;
};

/// Makes the folder "nimbrale" in $XDG_RUNTIME_DIR, or, where that is unset, relative or not this user's alone, in the
/// user's cache folder. What comes back belongs to this user and is closed to all others; another user's folder, or a
/// link, of that name is never taken. `user` is this user. Any thread.
[[nodiscard]] Result<RuntimeFolder> openRuntimeFolder(uid_t user);

} // namespace nimbrale
