#pragma once

#include <cstddef>
#include <memory>

namespace nimbrale {

/// Pixels in this process's memory, four bytes each in the order blue, green, red, alpha; rows from the top down.
class PixelBuffer {
public:
    static constexpr int bytesPerPixel = 4;

    /// Both at least 1. The pixels are not initialized.
    PixelBuffer(int width, int height)
        : width_(width), height_(height),
          pixels_(std::make_unique_for_overwrite<std::byte[]>(stride() * static_cast<std::size_t>(height)))
    {}

    [[nodiscard]] int width() const { return width_; }
    [[nodiscard]] int height() const { return height_; }
    /// Bytes from one row to the next.
    [[nodiscard]] std::size_t stride() const { return static_cast<std::size_t>(width_) * bytesPerPixel; }
    [[nodiscard]] std::byte* row(int y) { return pixels_.get() + static_cast<std::size_t>(y) * stride(); }
    [[nodiscard]] const std::byte* row(int y) const { return pixels_.get() + static_cast<std::size_t>(y) * stride(); }

private:
    int width_;
    int height_;
    std::unique_ptr<std::byte[]> pixels_;
};

} // namespace nimbrale
