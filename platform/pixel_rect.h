#pragma once

namespace nimbrale {

/// A rectangle of whole pixels, top-left origin.
struct PixelRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    bool operator==(const PixelRect&) const = default;
};

[[nodiscard]] inline bool isEmpty(const PixelRect& pixels)
{
    return pixels.width <= 0 || pixels.height <= 0;
}
/// The smallest rectangle around both; an empty one adds nothing.
[[nodiscard]] PixelRect unitedPixels(const PixelRect& first, const PixelRect& second);
/// Whether both have a pixel in common.
[[nodiscard]] bool overlap(const PixelRect& first, const PixelRect& second);

} // namespace nimbrale
