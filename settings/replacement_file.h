#pragma once

#include "platform/result.h"

#include <filesystem>
#include <string_view>

namespace nimbrale {

/// A file's new content, on the disk beside the file and not yet in its place. Whatever fails, and whenever the process
/// ends, the file itself holds either all of the old content or all of the new. Errors name the step that failed.
class ReplacementFile {
public:
    /// Writes `content` to the disk, with the rights of the file at `path`. A symbolic link at `path` stays: what it
    /// leads to is replaced. Folders that are missing are made.
    [[nodiscard]] static Result<ReplacementFile> create(const std::filesystem::path& path, std::string_view content);
    /// Removes the content unless it took its place.
    ~ReplacementFile();
    ReplacementFile(ReplacementFile&& other) noexcept;
    ReplacementFile& operator=(ReplacementFile&&) = delete;

    /// Puts the content in the file's place. Call it once.
    [[nodiscard]] Result<void> takePlace();

    /// Removes what processes left behind that were killed while they replaced the file at `path`.
    static void removeLeftovers(const std::filesystem::path& path);

private:
    explicit ReplacementFile(std::filesystem::path target);
    [[nodiscard]] Result<void> write(std::string_view content) const;

    std::filesystem::path target_;
    std::filesystem::path temporary_;
};

} // namespace nimbrale
