#pragma once

#include "platform/geometry.h"

#include <vector>

namespace nimbrale {

/// Which pixels of a panel take clicks, built from the shapes of its controls, so that a click falls through exactly
/// where a hit test of its position would find nothing. View coordinates: points from the panel's bottom-left corner, y
/// upward. Any thread.
class HitRegion {
public:
    /// Of a panel that is `viewSize` large and has `scale` pixels per point, the first at its top-left corner.
    HitRegion(Size viewSize, double scale) : viewHeight_(viewSize.height), scale_(scale) {}

    /// What `pointerIsIn` finds in the rectangle.
    void addRect(const Rect& rect);
    /// What `isInCircle` finds in the circle.
    void addCircle(Point center, double radius);

    /// For `Panel::setMouseRegion`; their edges lie on pixels. Those of different shapes may overlap.
    [[nodiscard]] const std::vector<Rect>& rects() const { return rects_; }

private:
    template <typename IsHit>
    void addPixels(const Rect& bounds, IsHit isHit);
    [[nodiscard]] Point pointerOn(int column, int row) const;
    [[nodiscard]] Rect pixelRect(int firstColumn, int endColumn, int firstRow, int endRow) const;

    double viewHeight_;
    double scale_;
    std::vector<Rect> rects_;
};

/// Whether a point is in a circle, its edge included.
[[nodiscard]] bool isInCircle(Point center, double radius, Point point);

} // namespace nimbrale
