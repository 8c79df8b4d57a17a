#include "platform/x11/displays/screen_space.h"

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace nimbrale::x11 {
namespace {

constexpr std::array scales{0.5, 1.0, 110.0 / 96, 1.25, 1.5, 1.75, 2.0, 3.0};

class ScreenSpaceAtScaleTest : public testing::TestWithParam<double> {
protected:
    [[nodiscard]] static double scale() { return GetParam(); }
    /// The main display in the middle, others to its left and beyond its bottom-right corner.
    ScreenSpace space{{300, 100, 1366, 768},
                      scale(),
                      {{{300, 100, 1366, 768}, scale()}, {{0, 0, 300, 200}, scale()}, {{1666, 868, 801, 601}, 1}}};
};

INSTANTIATE_TEST_SUITE_P(Scales, ScreenSpaceAtScaleTest, testing::ValuesIn(scales));

TEST_P(ScreenSpaceAtScaleTest, TheMainDisplayStartsAtTheOrigin)
{
    EXPECT_EQ(space.frameOf(0), (Rect{0, 0, 1366 / scale(), 768 / scale()}));
    EXPECT_EQ(space.pointOf({300, 868}), (Point{0, 0}));
    EXPECT_EQ(space.pointOf({300, 100}), (Point{0, 768 / scale()}));
}

TEST_P(ScreenSpaceAtScaleTest, EveryDisplayTurnsIntoPointsAndBack)
{
    const std::array pixels{PixelRect{300, 100, 1366, 768}, PixelRect{0, 0, 300, 200}, PixelRect{1666, 868, 801, 601}};
    for (std::size_t display = 0; display < pixels.size(); ++display) {
        EXPECT_EQ(space.pointsOf(pixels[display], display), space.frameOf(display));
        EXPECT_EQ(space.pixelsOf(space.frameOf(display)), pixels[display]);
        EXPECT_EQ(space.scaleAt(space.frameOf(display)), display == 2 ? 1 : scale());
    }
}

TEST_P(ScreenSpaceAtScaleTest, EveryPixelTurnsIntoAPointAndBack)
{
    for (const PixelRect& display : {PixelRect{300, 100, 1366, 768}, PixelRect{1666, 868, 801, 601}}) {
        const double ownScale = display.x == 300 ? scale() : 1;
        for (int step = 0; step < 600; ++step) {
            const PixelPoint pixel{display.x + step, display.y + step};
            const Point point = space.pointOf(pixel);
            const double side = 1 / ownScale;
            EXPECT_EQ(space.pixelsOf({point.x, point.y - side, side, side}), (PixelRect{pixel.x, pixel.y, 1, 1}));
        }
    }
}

TEST_P(ScreenSpaceAtScaleTest, ARectangleOfWholePixelsKeepsItsSizeWhereverItIsMoved)
{
    const double width = 77 / scale();
    const double height = 55 / scale();
    for (double place = -250; place < 250; place += 0.25) {
        const PixelRect pixels = space.pixelsOf({place, place + 100, width, height});
        EXPECT_EQ(pixels.width, 77) << place;
        EXPECT_EQ(pixels.height, 55) << place;
    }
}

TEST_P(ScreenSpaceAtScaleTest, RegionPointsCountFromTheDisplaysTopLeftCorner)
{
    EXPECT_EQ(space.pixelOf({0, 0}, 0), (PixelPoint{300, 100}));
    EXPECT_EQ(space.pixelOf({10 / scale(), 20 / scale()}, 0), (PixelPoint{310, 120}));
    EXPECT_EQ(space.pixelOf({10, 20}, 2), (PixelPoint{1676, 888}));
    // The same pixel as by way of the screen's points.
    for (int step = 0; step < 300; ++step) {
        const Point top{static_cast<double>(step), static_cast<double>(step)};
        const PixelRect pixels = space.pixelsOf({top.x, space.frameOf(0).maxY() - top.y - 100, 100, 100});
        EXPECT_EQ(space.pixelOf(top, 0), (PixelPoint{pixels.x, pixels.y})) << step;
    }
}

TEST(ScreenSpaceTest, EdgesInTheMiddleOfAPixelGoRightAndDown)
{
    const ScreenSpace space({0, 0, 1500, 900}, 1.5, {{{0, 0, 1500, 900}, 1.5}});
    EXPECT_EQ(space.pixelOf({1, 1}, 0), (PixelPoint{2, 2}));
    EXPECT_EQ(space.pixelOf({3, 3}, 0), (PixelPoint{5, 5}));
    EXPECT_EQ(space.pixelsOf({1, 600 - 52, 50, 51}), (PixelRect{2, 2, 75, 76}));
    EXPECT_EQ(space.pixelsOf({-3, 597, 3, 3}), (PixelRect{-4, 0, 4, 5}));
}

TEST(ScreenSpaceTest, ADisplayOfAScaleOfItsOwnKeepsItsCornerAndCountsItsOwnPoints)
{
    const ScreenSpace space({0, 0, 1280, 720}, 2, {{{0, 0, 1280, 720}, 2}, {{1280, 720, 400, 300}, 1}});
    EXPECT_EQ(space.frameOf(1), (Rect{640, -300, 400, 300}));
    EXPECT_EQ(space.pointOf({1290, 725}), (Point{650, -5}));
    EXPECT_EQ(space.pixelsOf({650, -10, 20, 5}), (PixelRect{1290, 725, 20, 5}));
    EXPECT_EQ(space.pointsOf({1290, 725, 20, 5}, 1), (Rect{650, -10, 20, 5}));
    EXPECT_EQ(space.pointOf({1279, 719}), (Point{639.5, 0.5}));
}

TEST(ScreenSpaceTest, TheDisplayThatHoldsMostOfARectangleDecides)
{
    const ScreenSpace space({0, 0, 1280, 720}, 2, {{{0, 0, 1280, 720}, 2}, {{1280, 720, 400, 300}, 1}});
    EXPECT_EQ(space.scaleAt({630, -20, 30, 20}), 1);
    EXPECT_EQ(space.scaleAt({600, -1, 50, 100}), 2);
    // No display, so the desktop's scale, counted on from the main display.
    EXPECT_EQ(space.scaleAt({-500, -500, 10, 10}), 2);
    EXPECT_EQ(space.pixelsOf({-500, -500, 10, 10}), (PixelRect{-1000, 1700, 20, 20}));
    EXPECT_EQ(space.pointOf({-1000, 1700}), (Point{-500, -490}));
    EXPECT_EQ(space.scaleAt({650, -10, 0, 0}), 2) << "without an area it lies on none";
}

TEST(ScreenSpaceTest, WithoutDisplaysPointsArePixels)
{
    const ScreenSpace space;
    EXPECT_EQ(space.pointOf({30, 20}), (Point{30, -20}));
    EXPECT_EQ(space.pixelsOf({30, -20, 5, 6}), (PixelRect{30, 14, 5, 6}));
}

TEST(ScreenSpaceTest, NoNumbersOverflow)
{
    constexpr int lowest = std::numeric_limits<int>::min();
    constexpr int highest = std::numeric_limits<int>::max();
    const ScreenSpace space({lowest, highest, highest, highest}, 0.5, {{{lowest, lowest, highest, highest}, 0.5}});
    const PixelRect far = space.pixelsOf({-1e300, -1e300, 2e300, 2e300});
    EXPECT_EQ(far, (PixelRect{lowest, lowest, highest, highest}));
    EXPECT_EQ(ScreenSpace().pixelsOf({10, 20, -10, -10}), (PixelRect{10, -10, 0, 0}));
    const double nothing = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(space.pixelsOf({nothing, nothing, nothing, nothing}), PixelRect{});
    EXPECT_TRUE(std::isfinite(space.pointOf({highest, lowest}).x));
}

} // namespace
} // namespace nimbrale::x11
