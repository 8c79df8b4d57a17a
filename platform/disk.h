#pragma once

#include <filesystem>
#include <string>

namespace nimbrale {

// Errors are those of `errno`.

/// Waits until the disk holds an open file, with all that was written to it and its rights: 0, or why not. File systems
/// that know no such wait count as done.
[[nodiscard]] int bringToDisk(int file);
/// The same for a folder, with the names of the files in it.
[[nodiscard]] int bringToDisk(const std::filesystem::path& folder);

/// Why no file can be made in a folder, and what to do about it, in sentences for the user.
[[nodiscard]] std::string whyNoFileIsMade(int error);

} // namespace nimbrale
