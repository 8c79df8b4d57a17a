#pragma once

#include <cstddef>
#include <memory>
#include <utility>

namespace nimbrale {

/// Pixels in this process's memory, four bytes each in the order blue, green, red, alpha; rows from the top down.
class PixelBuffer {
public:
    static constexpr int bytesPerPixel = 4;

    /// Both at least 1. The pixels are not initialized.
    PixelBuffer(int width, int height)
        : PixelBuffer(width, height,
                      std::make_shared_for_overwrite<std::byte[]>(static_cast<std::size_t>(width) * bytesPerPixel *
                                                                  static_cast<std::size_t>(height)))
    {}
    /// In memory that somebody else took, of width × height × 4 bytes.
    PixelBuffer(int width, int height, std::shared_ptr<std::byte[]> pixels)
        : width_(width), height_(height), pixels_(std::move(pixels))
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
    std::shared_ptr<std::byte[]> pixels_;
};

} // namespace nimbrale
