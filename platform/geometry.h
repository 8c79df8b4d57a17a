#pragma once

namespace nimbrale {

/// A position in points. Which coordinate space it lives in is stated by whoever hands it out.
struct Point {
    double x = 0;
    double y = 0;

    bool operator==(const Point&) const = default;
};

/// An extent in points. Negative extents are allowed as values but count as empty.
struct Size {
    double width = 0;
    double height = 0;

    bool operator==(const Size&) const = default;
};

/// An axis-parallel rectangle in points, compared exactly. `min` and `max` are the smaller and larger coordinate on an
/// axis; whether a larger y is higher or lower on the screen is a matter of the coordinate space:
/// - screen coordinates: origin at the bottom-left of the main screen, y grows upward;
/// - region coordinates: origin at the top-left of one display, y grows downward.
struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    bool operator==(const Rect&) const = default;

    [[nodiscard]] double minX() const { return x; }
    [[nodiscard]] double midX() const { return x + width / 2; }
    [[nodiscard]] double maxX() const { return x + width; }
    [[nodiscard]] double minY() const { return y; }
    [[nodiscard]] double midY() const { return y + height / 2; }
    [[nodiscard]] double maxY() const { return y + height; }
    [[nodiscard]] Point origin() const { return {x, y}; }
    [[nodiscard]] Size size() const { return {width, height}; }

    /// The rectangle that is the neutral element of `unitedWith`: it lies nowhere and is empty.
    [[nodiscard]] static Rect null();
    [[nodiscard]] bool isNull() const;
    /// True for the null rectangle and for one without area.
    [[nodiscard]] bool isEmpty() const { return isNull() || width <= 0 || height <= 0; }

    /// The smallest rectangle with whole-number edges that contains this one: the origin is rounded down, the far
    /// edges are rounded up. The null rectangle stays null.
    [[nodiscard]] Rect integral() const;
    /// The common part. Rectangles that only touch give an empty rectangle with a position; rectangles apart give null.
    [[nodiscard]] Rect intersectedWith(const Rect& other) const;
    /// True when the common part has an area.
    [[nodiscard]] bool intersects(const Rect& other) const { return !intersectedWith(other).isEmpty(); }
    /// The smallest rectangle that contains both; the null rectangle adds nothing.
    [[nodiscard]] Rect unitedWith(const Rect& other) const;
    /// Every side moved inward by the given distances; negative distances grow the rectangle.
    [[nodiscard]] Rect insetBy(double dx, double dy) const { return {x + dx, y + dy, width - 2 * dx, height - 2 * dy}; }
    [[nodiscard]] Rect grownBy(double distance) const { return insetBy(-distance, -distance); }
    [[nodiscard]] Rect movedBy(double dx, double dy) const { return {x + dx, y + dy, width, height}; }
    /// Containment with the near edges inside and the far edges outside.
    [[nodiscard]] bool contains(Point point) const
    {
        return point.x >= minX() && point.x < maxX() && point.y >= minY() && point.y < maxY();
    }
};

/// The nearest whole number, halves away from zero.
[[nodiscard]] double roundHalfAwayFromZero(double value);

} // namespace nimbrale
