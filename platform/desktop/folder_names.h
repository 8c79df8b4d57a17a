#pragma once

#include <filesystem>
#include <string>

namespace nimbrale {

/// What the user knows a folder by: the toolkit's word for the home folder, else the folder's own name, which the
/// desktop gives to the folders for pictures, videos and so on in the user's language. UTF-8.
[[nodiscard]] std::string folderDisplayName(const std::filesystem::path& folder);

} // namespace nimbrale
