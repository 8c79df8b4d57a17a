#pragma once

#include <cstddef>
#include <filesystem>
#include <vector>

namespace nimbrale {

/// Where recordings go. The user's choice is kept as a bookmark: bytes that lead back to the folder, also when it was
/// renamed or moved on its disk. Any thread.
namespace recording_folder {

using Bookmark = std::vector<std::byte>;

/// The user's folder for videos, whether or not it is there.
[[nodiscard]] std::filesystem::path defaultFolder();

/// The folder that the bookmark leads to; the default folder where there is no bookmark, or none that leads to a
/// folder which can be entered. A folder that is not at its place any more is looked for among up to some thousand
/// folders near it. Never fails.
[[nodiscard]] std::filesystem::path resolve(const Bookmark& bookmark);

/// Where the bookmark's folder was when it was made; the default folder where there is no bookmark. Asks no disk, which
/// everything else here may wait for.
[[nodiscard]] std::filesystem::path lastKnownPath(const Bookmark& bookmark);

/// Whether there is a folder where the bookmark's was when it was made.
[[nodiscard]] bool isAtItsPlace(const Bookmark& bookmark);

/// A bookmark of that folder; empty when it is not there.
[[nodiscard]] Bookmark bookmarkOf(const std::filesystem::path& folder);

} // namespace recording_folder

} // namespace nimbrale
