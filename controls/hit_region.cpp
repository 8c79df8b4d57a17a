#include "controls/hit_region.h"

#include "geometry/display_geometry.h"

#include <cmath>

namespace nimbrale {

/// Where the pointer is reported that is on this pixel, in columns from the left edge and rows from the top: at its
/// top-left corner. In exactly the arithmetic of a panel, so that a point at the very edge of a target falls on the
/// same side of it here as there.
Point HitRegion::pointerOn(int column, int row) const
{
    return {column / scale_, viewHeight_ - row / scale_};
}

/// The last column and row are not part of it.
Rect HitRegion::pixelRect(int firstColumn, int endColumn, int firstRow, int endRow) const
{
    return {firstColumn / scale_, viewHeight_ - endRow / scale_, (endColumn - firstColumn) / scale_,
            (endRow - firstRow) / scale_};
}

/// Adds the pixels in and around `bounds` where `isHit` holds for the pointer, which must be without gaps in every row.
/// Rows that are alike become one rectangle.
template <typename IsHit>
void HitRegion::addPixels(const Rect& bounds, IsHit isHit)
{
    const int leftmost = static_cast<int>(std::floor(bounds.minX() * scale_));
    const int rightmost = static_cast<int>(std::ceil(bounds.maxX() * scale_));
    const int top = static_cast<int>(std::floor((viewHeight_ - bounds.maxY()) * scale_));
    const int bottom = static_cast<int>(std::ceil((viewHeight_ - bounds.minY()) * scale_));
    struct Run {
        int first = 0;
        int end = 0;

        bool operator==(const Run&) const = default;
    };
    Run above;
    int firstRow = top;
    const auto startBand = [&](const Run& run, int row) {
        if (above.first < above.end)
            rects_.push_back(pixelRect(above.first, above.end, firstRow, row));
        above = run;
        firstRow = row;
    };
    for (int row = top; row <= bottom; ++row) {
        Run run{leftmost, rightmost + 1};
        while (run.first < run.end && !isHit(pointerOn(run.first, row)))
            ++run.first;
        while (run.first < run.end && !isHit(pointerOn(run.end - 1, row)))
            --run.end;
        if (run != above)
            startBand(run, row);
    }
    startBand({}, bottom + 1);
}

void HitRegion::addRect(const Rect& rect)
{
    addPixels(rect, [&](Point pointer) { return pointerIsIn(rect, pointer); });
}

void HitRegion::addCircle(Point center, double radius)
{
    const Rect bounds{center.x - radius, center.y - radius, 2 * radius, 2 * radius};
    addPixels(bounds, [&](Point pointer) { return isInCircle(center, radius, pointer); });
}

bool isInCircle(Point center, double radius, Point point)
{
    return std::hypot(point.x - center.x, point.y - center.y) <= radius;
}

} // namespace nimbrale
