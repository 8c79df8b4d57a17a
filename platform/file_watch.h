#pragma once

#include "platform/file_descriptor.h"

#include <filesystem>

namespace nimbrale {

/// Tells whether a file may have changed, so that it need not be read again otherwise. What any process of this machine
/// does to the file, its name or its folder is known as soon as it is done; what another machine does to a file on a
/// network is not. Asking costs one system call that never goes to the disk. Not thread-safe.
class FileWatch {
public:
    /// The file, and even its folder, may be missing.
    explicit FileWatch(std::filesystem::path path);

    /// True the first time, when something happened since the last call, and always while the file's folder is missing
    /// or cannot be watched. Read the file after this call, not before it.
    [[nodiscard]] bool mayHaveChanged();

private:
    [[nodiscard]] bool watchFolders() const;

    std::filesystem::path path_;
    FileDescriptor events_;
    bool isWatching_ = false;
};

} // namespace nimbrale
