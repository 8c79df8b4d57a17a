#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

namespace nimbrale::v4l2 {

/// Gives back a camera's buffers that the library leaves in this process's memory where the camera could not be
/// started: some ten megabytes each time, and a camera is tried again and again. Begun before the camera is opened.
class LeftBuffers {
public:
    /// `file` is the camera's. What is in memory of it now stays.
    explicit LeftBuffers(const std::filesystem::path& file);

    /// Takes out of memory what came since. Nobody else may have opened the same camera meanwhile, and nobody may use
    /// its buffers any more.
    void giveBack() const;

private:
    struct Range {
        std::uintptr_t begin = 0;
        std::uintptr_t end = 0;
    };

    [[nodiscard]] std::vector<Range> mapped() const;

    /// Which file it is, though it may lose its name meanwhile; zero where it is none.
    std::uint64_t device_ = 0;
    std::uint64_t inode_ = 0;
    std::vector<Range> before_;
};

} // namespace nimbrale::v4l2
