#pragma once

#include "platform/geometry.h"
#include "platform/pixel_rect.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace nimbrale::x11 {

/// How root pixels (top-left origin, y downward) and screen points (origin at the bottom-left corner of the main
/// display, y upward) correspond. The only place where one is turned into the other. A value that never changes: when
/// displays or scales do, another takes its place. Any thread.
///
/// A point is `desktopScale` pixels, and screen points run through all displays without a break. A display whose own
/// scale differs keeps its top-left corner where the desktop's scale puts it and counts its own points from there.
///
/// Points need not fall on pixels. An edge in points belongs to the nearest pixel edge, halves to the right and
/// downward, which does not depend on where the origin lies: a rectangle whose size is a whole number of pixels has
/// that size wherever it is moved.
class ScreenSpace {
public:
    struct Display {
        /// On the root.
        PixelRect pixels;
        /// Pixels per point.
        double scale = 1;
    };

    /// Without displays: points are pixels, counted from the root's top-left corner.
    ScreenSpace() = default;
    /// `mainPixels` is the main display on the root; `desktopScale` is positive.
    ScreenSpace(const PixelRect& mainPixels, double desktopScale, std::vector<Display> displays);

    /// The screen point of a pixel's top-left corner.
    [[nodiscard]] Point pointOf(PixelPoint pixel) const;
    /// The frame of the display of that index, in screen points.
    [[nodiscard]] const Rect& frameOf(std::size_t display) const { return frames_[display]; }
    /// Root pixels within the display of that index, in screen points.
    [[nodiscard]] Rect pointsOf(const PixelRect& pixels, std::size_t display) const;

    /// The root pixels of a rectangle in screen points, by the scale of the display that holds most of it, by the
    /// desktop's when none does.
    [[nodiscard]] PixelRect pixelsOf(const Rect& screenRect) const;
    /// Pixels per point for that rectangle.
    [[nodiscard]] double scaleAt(const Rect& screenRect) const;
    /// The root pixel nearest to a point given in the display's region coordinates (top-left origin).
    [[nodiscard]] PixelPoint pixelOf(Point regionPoint, std::size_t display) const;

private:
    [[nodiscard]] Point desktopPointOf(PixelPoint pixel) const;
    [[nodiscard]] std::optional<std::size_t> displayHolding(const Rect& screenRect) const;

    /// Where on the root, in pixels, the origin of screen points lies.
    Point origin_;
    double desktopScale_ = 1;
    std::vector<Display> displays_;
    std::vector<Rect> frames_;
};

} // namespace nimbrale::x11
