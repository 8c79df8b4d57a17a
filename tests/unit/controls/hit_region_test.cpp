// Which pixels take clicks: exactly those on which a hit test of the pointer finds something.

#include "controls/hit_region.h"
#include "geometry/display_geometry.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Size viewSize{60, 40};

/// Whether the rectangles hold a pixel's middle.
bool covers(const std::vector<Rect>& rects, double x, double y)
{
    return std::ranges::any_of(rects, [&](const Rect& rect) {
        return x > rect.minX() && x < rect.maxX() && y > rect.minY() && y < rect.maxY();
    });
}

void expectPixelsOf(const HitRegion& region, double scale, const std::function<bool(Point)>& isHit)
{
    int hits = 0;
    for (int row = -5; row < std::ceil(viewSize.height * scale) + 5; ++row) {
        for (int column = -5; column < std::ceil(viewSize.width * scale) + 5; ++column) {
            const Point pointer{column / scale, viewSize.height - row / scale};
            const bool expected = isHit(pointer);
            hits += expected ? 1 : 0;
            EXPECT_EQ(covers(region.rects(), (column + 0.5) / scale, viewSize.height - (row + 0.5) / scale), expected)
                << "column " << column << ", row " << row << " at scale " << scale;
        }
    }
    EXPECT_GT(hits, 0);
}

class HitRegionTest : public testing::TestWithParam<double> {};

INSTANTIATE_TEST_SUITE_P(Scales, HitRegionTest, testing::Values(1, 1.25, 1.5, 1.75, 2, 3));

TEST_P(HitRegionTest, ARectanglesPixelsAreThoseThatThePointerIsInFor)
{
    for (const Rect& rect : {Rect{10, 12, 22, 18}, Rect{0, 0, 60, 40}, Rect{3.3, 4.6, 20.2, 11.9}}) {
        HitRegion region(viewSize, GetParam());
        region.addRect(rect);
        expectPixelsOf(region, GetParam(), [&](Point pointer) { return pointerIsIn(rect, pointer); });
    }
}

TEST_P(HitRegionTest, ACirclesPixelsAreThoseWhosePointerIsWithinItsRadius)
{
    for (const double radius : {13.0, 12.98, 1.0}) {
        HitRegion region(viewSize, GetParam());
        region.addCircle({30, 19}, radius);
        expectPixelsOf(region, GetParam(), [&](Point pointer) { return isInCircle({30, 19}, radius, pointer); });
    }
}

TEST_P(HitRegionTest, ShapesAddUp)
{
    const Rect rect{2, 3, 10, 30};
    HitRegion region(viewSize, GetParam());
    region.addRect(rect);
    region.addCircle({40, 20}, 8);
    expectPixelsOf(region, GetParam(), [&](Point pointer) {
        return pointerIsIn(rect, pointer) || isInCircle({40, 20}, 8, pointer);
    });
}

TEST(HitRegionTest, AWholeRectangleIsOne)
{
    HitRegion region(viewSize, 1);
    EXPECT_THAT(region.rects(), IsEmpty());
    region.addRect({10, 12, 22, 18});
    EXPECT_THAT(region.rects(), ElementsAre(Rect{10, 12, 22, 18}));
}

TEST(HitRegionTest, ACirclesEdgeBelongsToIt)
{
    EXPECT_TRUE(isInCircle({5, 5}, 5, {10, 5}));
    EXPECT_TRUE(isInCircle({5, 5}, 5, {8, 9}));
    EXPECT_FALSE(isInCircle({5, 5}, 5, {8.01, 9}));
}

} // namespace
} // namespace nimbrale
