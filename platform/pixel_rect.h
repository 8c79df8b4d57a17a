#pragma once

#include <cstdint>

namespace nimbrale {

/// A pixel. Which space it is counted in is stated by whoever hands it out.
struct PixelPoint {
    int x = 0;
    int y = 0;

    bool operator==(const PixelPoint&) const = default;
};

/// A rectangle of whole pixels; y grows downward. Any numbers may stand in it, since other programs write some that
/// end up here: all arithmetic is 64 bits wide, and what does not fit into the result is cut off at the largest value.
struct PixelRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    bool operator==(const PixelRect&) const = default;

    /// The column after the last one.
    [[nodiscard]] std::int64_t right() const { return std::int64_t{x} + width; }
    /// The row after the last one.
    [[nodiscard]] std::int64_t bottom() const { return std::int64_t{y} + height; }
    /// True when it holds no pixel.
    [[nodiscard]] bool isEmpty() const { return width <= 0 || height <= 0; }
    /// How many pixels it holds.
    [[nodiscard]] std::int64_t area() const { return isEmpty() ? 0 : std::int64_t{width} * height; }
    [[nodiscard]] bool contains(PixelPoint pixel) const;
    /// Whether both have a pixel in common.
    [[nodiscard]] bool intersects(const PixelRect& other) const { return !intersectedWith(other).isEmpty(); }
    /// The pixels that both have in common; a default rectangle when there are none.
    [[nodiscard]] PixelRect intersectedWith(const PixelRect& other) const;
    /// The smallest rectangle around both; an empty one adds nothing.
    [[nodiscard]] PixelRect unitedWith(const PixelRect& other) const;
    [[nodiscard]] PixelRect movedBy(int dx, int dy) const;
};

} // namespace nimbrale
