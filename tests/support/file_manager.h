#pragma once

#include <filesystem>
#include <string>

namespace nimbrale::test {

/// Puts a stand-in for the file manager into `folder`, which shows nothing and only notes what it was asked to show.
/// Returns the PATH with which programs find it before what is on `path`.
[[nodiscard]] std::string putFileManager(const std::filesystem::path& folder, const std::string& path);
/// What the one in that folder was asked to show, each on a line.
[[nodiscard]] std::string revealedTo(const std::filesystem::path& folder);

} // namespace nimbrale::test
