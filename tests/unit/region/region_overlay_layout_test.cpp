#include "region/region_overlay_layout.h"

#include "tests/fakes/fake_screens.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <string>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::Optional;

const Rect screen{0, 0, 1512, 982};
const Rect roomyRegion{300, 200, 640, 400};

RegionOverlayLayout layoutOf(const Rect& region, const Rect& itsScreen = screen)
{
    return RegionOverlayLayout({.region = region,
                                .screen = itsScreen,
                                .cameraHousing = std::nullopt,
                                .guides = {},
                                .recordingTextWidth = std::nullopt,
                                .sizeLabelTextWidth = std::nullopt});
}

RegionOverlayLayout layoutUnder(const Rect& housing, const Rect& region)
{
    RegionOverlayLayoutInput input;
    input.region = region;
    input.screen = screen;
    input.cameraHousing = housing;
    return RegionOverlayLayout(input);
}

TEST(RegionOverlayLayoutTest, BorderLiesOutsideWhereThereIsRoom)
{
    EXPECT_EQ(layoutOf(roomyRegion).borderOuter(), (Rect{295, 195, 650, 410}));
}

TEST(RegionOverlayLayoutTest, BorderOfARegionFlushWithTheLeftEdgeLiesInsideThere)
{
    const RegionOverlayLayout layout = layoutOf({0, 200, 640, 400});
    EXPECT_EQ(layout.borderOuter(), (Rect{0, 195, 645, 410}));
    EXPECT_EQ(layout.borderBands()[2], (Rect{0, 200, 5, 400})) << "the left band";
    EXPECT_EQ(layout.borderBands()[3], (Rect{640, 200, 5, 400})) << "the right band";
}

TEST(RegionOverlayLayoutTest, EverySideDecidesForItself)
{
    EXPECT_EQ(layoutOf({5, 5, 1502, 972}).borderOuter(), screen) << "five points are room enough";
    EXPECT_EQ(layoutOf({4, 200, 640, 400}).borderOuter(), (Rect{4, 195, 645, 410}));
    EXPECT_EQ(layoutOf({872, 200, 636, 400}).borderOuter(), (Rect{867, 195, 641, 410}));
    EXPECT_EQ(layoutOf({300, 4, 640, 400}).borderOuter(), (Rect{295, 4, 650, 405}));
    EXPECT_EQ(layoutOf({300, 578, 640, 400}).borderOuter(), (Rect{295, 573, 650, 405}));
    EXPECT_EQ(layoutOf(screen).borderOuter(), screen);
}

TEST(RegionOverlayLayoutTest, BandsAreTheBorderAndNothingElse)
{
    const auto bands = layoutOf(roomyRegion).borderBands();
    EXPECT_THAT(bands, ElementsAre(Rect{295, 600, 650, 5}, Rect{295, 195, 650, 5}, Rect{295, 200, 5, 400},
                                   Rect{940, 200, 5, 400}));
}

TEST(RegionOverlayLayoutTest, ControlsSitOnTheMiddleOfTheBorder)
{
    const RegionOverlayLayout layout = layoutOf(roomyRegion);
    // 940 + 2.5 − 11 = 931.5 and 600 + 2.5 − 11 = 591.5, halves away from zero.
    EXPECT_EQ(layout.button(FrameButton::close), (Rect{932, 592, 22, 22}));
    EXPECT_EQ(layout.button(FrameButton::settings), (Rect{932, 564, 22, 22}));
    EXPECT_EQ(layout.button(FrameButton::record), (Rect{932, 536, 22, 22}));
    EXPECT_EQ(layout.handle(), (Rect{597, 592, 46, 22}));
    // 200 − 2.5 − 11 = 186.5.
    EXPECT_EQ(layout.resizeButton(), (Rect{932, 187, 22, 22}));
}

TEST(RegionOverlayLayoutTest, ControlsTuckInsideAtTheScreensEdges)
{
    const RegionOverlayLayout layout = layoutOf(screen);
    EXPECT_EQ(layout.button(FrameButton::close), (Rect{1487, 957, 22, 22}));
    EXPECT_EQ(layout.button(FrameButton::record), (Rect{1487, 901, 22, 22}));
    EXPECT_EQ(layout.handle(), (Rect{733, 960, 46, 22})) << "22 below the edge, not 25 as the buttons are";
    EXPECT_EQ(layout.resizeButton(), (Rect{1487, 3, 22, 22}));
}

TEST(RegionOverlayLayoutTest, ControlsTuckInsideOnlyAtTheEdgeBesideThem)
{
    const RegionOverlayLayout atTheTop = layoutOf({300, 582, 640, 400});
    EXPECT_EQ(atTheTop.button(FrameButton::close), (Rect{932, 957, 22, 22}));
    EXPECT_EQ(atTheTop.resizeButton(), (Rect{932, 569, 22, 22}));
    const RegionOverlayLayout atTheBottom = layoutOf({300, 0, 640, 400});
    EXPECT_EQ(atTheBottom.button(FrameButton::close), (Rect{932, 392, 22, 22}));
    EXPECT_EQ(atTheBottom.resizeButton(), (Rect{932, 3, 22, 22}));
}

TEST(RegionOverlayLayoutTest, NegativeHalvesRoundAwayFromZero)
{
    // The view of a window at rest starts 24 points outside of the region: only a region beyond it gets below zero.
    EXPECT_EQ(layoutOf({300, 5, 640, 400}).resizeButton().y, -9) << "5 − 13.5 = −8.5";
}

TEST(RegionOverlayLayoutTest, ButtonsAreRoundTargetsWithSlack)
{
    const RegionOverlayLayout layout = layoutOf(roomyRegion);
    const Rect close = layout.button(FrameButton::close);
    EXPECT_EQ(layout.buttonAt({close.midX(), close.midY()}), FrameButton::close);
    EXPECT_EQ(layout.buttonAt({close.midX() + 13, close.midY()}), FrameButton::close);
    EXPECT_EQ(layout.buttonAt({close.midX() + 13.01, close.midY()}), std::nullopt);
    EXPECT_EQ(layout.buttonAt({close.midX() + 10, close.midY() + 10}), std::nullopt) << "the corner of the square";
    EXPECT_EQ(layout.buttonAt({close.midX(), close.midY() - 28}), FrameButton::settings);
    EXPECT_EQ(layout.buttonAt({close.midX(), close.midY() - 56}), FrameButton::record);
    EXPECT_EQ(layout.buttonAt({close.midX(), close.midY() - 14}), std::nullopt) << "between two targets";
}

TEST(RegionOverlayLayoutTest, ZonesAreHandleAndResizeButton)
{
    const RegionOverlayLayout layout = layoutOf(roomyRegion);
    EXPECT_EQ(layout.zoneAt({620, 600}), DragZone::move);
    EXPECT_EQ(layout.zoneAt({597, 614}), DragZone::move) << "top-left pixel";
    EXPECT_EQ(layout.zoneAt({643, 600}), std::nullopt) << "right of it";
    EXPECT_EQ(layout.zoneAt({620, 592}), std::nullopt) << "below it";
    EXPECT_EQ(layout.zoneAt({943, 198}), DragZone::resize);
    EXPECT_EQ(layout.zoneAt({620, 400}), std::nullopt) << "inside the frame";
    EXPECT_EQ(layout.zoneAt({297, 400}), std::nullopt) << "on the border";
}

TEST(RegionOverlayLayoutTest, PressOnTheResizeButtonHasTwoPointsOfSlack)
{
    const RegionOverlayLayout layout = layoutOf(roomyRegion);
    EXPECT_EQ(layout.zoneAt({931, 198}), std::nullopt);
    EXPECT_EQ(layout.pressedZoneAt({931, 198}), DragZone::resize);
    EXPECT_EQ(layout.pressedZoneAt({930, 211}), DragZone::resize);
    EXPECT_EQ(layout.pressedZoneAt({929, 198}), std::nullopt);
    EXPECT_EQ(layout.pressedZoneAt({956, 198}), std::nullopt);
    EXPECT_EQ(layout.pressedZoneAt({596, 600}), std::nullopt) << "the handle has none";
}

/// The scale at which the frame is shown. Device pixels of the view count from its top-left corner.
class RegionOverlayHitRegionTest : public testing::TestWithParam<double> {
protected:
    static int columns() { return static_cast<int>(std::ceil(view.width * GetParam())); }
    static int rows() { return static_cast<int>(std::ceil(view.height * GetParam())); }

    /// What panels make of such a region, by rows: a rectangle takes every pixel that it touches, beyond what the
    /// arithmetic loses.
    static std::vector<bool> pixelsOf(const std::vector<Rect>& rects)
    {
        constexpr double slack = 1e-6;
        const auto first = [](double edge) { return static_cast<int>(std::floor(edge * GetParam() + slack)); };
        const auto end = [](double edge) { return static_cast<int>(std::ceil(edge * GetParam() - slack)); };
        std::vector<bool> pixels(static_cast<std::size_t>(columns()) * rows());
        for (const Rect& rect : rects) {
            for (int row = first(view.height - rect.maxY()); row < end(view.height - rect.minY()); ++row) {
                for (int column = first(rect.minX()); column < end(rect.maxX()); ++column)
                    pixels.at(static_cast<std::size_t>(row) * columns() + column) = true;
            }
        }
        return pixels;
    }

    static void expectHitRegionToBeWhatIsHit(const RegionOverlayLayout& layout, RegionOverlayLayout::ResizeSlack slack)
    {
        const std::vector<bool> pixels = pixelsOf(layout.hitRegion(slack, view, GetParam()));
        int hits = 0;
        for (int row = 0; row < rows(); ++row) {
            for (int column = 0; column < columns(); ++column) {
                // The pointer is reported at the top-left corner of its pixel.
                const Point pointer{column / GetParam(), view.height - row / GetParam()};
                const auto zone = slack == RegionOverlayLayout::ResizeSlack::yes ? layout.pressedZoneAt(pointer)
                                                                                 : layout.zoneAt(pointer);
                const bool isHit = layout.buttonAt(pointer) || zone;
                ASSERT_EQ(pixels[static_cast<std::size_t>(row) * columns() + column], isHit)
                    << "in column " << column << " of row " << row;
                hits += isHit ? 1 : 0;
            }
        }
        EXPECT_GT(hits, 3000 * GetParam() * GetParam()) << "all of the controls";
    }

    /// Its height is no whole number of pixels at every scale: rows count from the top, not from the bottom.
    static constexpr Size view{198, 201};
};

TEST_P(RegionOverlayHitRegionTest, HitRegionIsWhatTheHitTestsHit)
{
    const RegionOverlayLayout layout = layoutOf({24, 24, 150, 153});
    for (const auto slack : {RegionOverlayLayout::ResizeSlack::no, RegionOverlayLayout::ResizeSlack::yes})
        expectHitRegionToBeWhatIsHit(layout, slack);
}

TEST_P(RegionOverlayHitRegionTest, HitRegionOfControlsBetweenPixelsIsWhatTheHitTestsHit)
{
    // At the screen's edges controls are not rounded to whole points.
    const Rect wholeScreen{24.3, 24.4, 150.1, 153.3};
    const RegionOverlayLayout layout = layoutOf(wholeScreen, wholeScreen);
    ASSERT_NE(layout.resizeButton().x, std::round(layout.resizeButton().x));
    for (const auto slack : {RegionOverlayLayout::ResizeSlack::no, RegionOverlayLayout::ResizeSlack::yes})
        expectHitRegionToBeWhatIsHit(layout, slack);
}

INSTANTIATE_TEST_SUITE_P(Scales, RegionOverlayHitRegionTest, testing::Values(1.0, 1.25, 1.5, 2.0, 3.0),
                         [](const auto& suite) {
                             return "Percent" + std::to_string(static_cast<int>(100 * suite.param));
                         });

TEST(RegionOverlayLayoutTest, HandleUnderTheCameraHousingGoesToItsLeft)
{
    const Rect housing{666, 950, 180, 32};
    const Rect wide{456, 582, 600, 400};
    const RegionOverlayLayout layout = layoutUnder(housing, wide);
    EXPECT_EQ(layout.handle(), (Rect{614, 960, 46, 22})) << "right edge 6 points left of 666, the left one on a tie";
}

TEST(RegionOverlayLayoutTest, HandleTakesTheSideNearerToTheMiddle)
{
    const Rect housing{666, 950, 180, 32};
    EXPECT_EQ(layoutUnder(housing, {500, 582, 600, 400}).handle().minX(), 852) << "6 points right of 846";
    EXPECT_EQ(layoutUnder(housing, {400, 582, 600, 400}).handle().minX(), 614);
}

TEST(RegionOverlayLayoutTest, HandleOfANarrowRegionDropsBelowTheHousing)
{
    const Rect housing{666, 950, 180, 32};
    const Rect narrow{656, 582, 200, 400};
    EXPECT_EQ(layoutUnder(housing, narrow).handle(), (Rect{733, 924, 46, 22})) << "its top 4 points under 950";
}

TEST(RegionOverlayLayoutTest, SidewaysPositionsKeepFourPointsFromRegionAndButtons)
{
    const Rect housing{666, 950, 180, 32};
    // The handle would be at 614 … 660: acceptable from a left edge of 610 on. Its right twin never is.
    EXPECT_EQ(layoutUnder(housing, {610, 582, 280, 400}).handle().minX(), 614);
    EXPECT_EQ(layoutUnder(housing, {611, 582, 280, 400}).handle().y, 924);
    // At 852 … 898 it needs the close button at 902 or beyond: a right edge of 910.
    EXPECT_EQ(layoutUnder(housing, {630, 582, 280, 400}).handle().minX(), 852);
    EXPECT_EQ(layoutUnder(housing, {629, 582, 280, 400}).handle().y, 924);
}

TEST(RegionOverlayLayoutTest, HandleBesideOrBelowTheHousingStaysInTheMiddle)
{
    const Rect housing{666, 950, 180, 32};
    EXPECT_EQ(layoutUnder(housing, {100, 582, 600, 400}).handle().minX(), 377);
    EXPECT_EQ(layoutUnder(housing, {456, 300, 600, 400}).handle(), (Rect{733, 692, 46, 22}));
    // 6 points clear of the housing are clear enough, and below it none are needed.
    EXPECT_EQ(layoutUnder(housing, {337, 582, 600, 400}).handle().minX(), 614);
    EXPECT_EQ(layoutUnder(housing, {338, 582, 600, 400}).handle().minX(), 614) << "moved back by one";
    EXPECT_EQ(layoutUnder(housing, {575, 582, 600, 400}).handle().minX(), 852);
    EXPECT_EQ(layoutUnder(housing, {574, 582, 600, 400}).handle().minX(), 852) << "moved on by one";
    EXPECT_EQ(layoutUnder(housing, {456, 536, 600, 400}).handle(), (Rect{733, 928, 46, 22}));
}

TEST(RegionOverlayLayoutTest, CameraHousingFillsTheGapBetweenTheAreasAtTheTop)
{
    Screen notched = makeScreen(1, {100, 50, 1512, 982});
    EXPECT_EQ(cameraHousingRect(notched), std::nullopt);
    notched.cameraHousing = CameraHousing{666, 666, 32};
    EXPECT_THAT(cameraHousingRect(notched), Optional(Rect{766, 1000, 180, 32}));
    notched.cameraHousing->topInset = 0;
    EXPECT_EQ(cameraHousingRect(notched), std::nullopt);
    notched.cameraHousing = CameraHousing{756, 756, 32};
    EXPECT_EQ(cameraHousingRect(notched), std::nullopt) << "without width";
}

RegionOverlayLayout labelledLayout(const Rect& region)
{
    RegionOverlayLayoutInput input;
    input.region = region;
    input.screen = screen;
    input.recordingTextWidth = 53.6;
    input.sizeLabelTextWidth = 120.4;
    return RegionOverlayLayout(input);
}

TEST(RegionOverlayLayoutTest, RecordingTimeStandsOnTheHandlesRow)
{
    EXPECT_THAT(labelledLayout(roomyRegion).recordingBackground(), Optional(Rect{305, 592, 76, 22}));
    EXPECT_THAT(labelledLayout({0, 200, 640, 400}).recordingBackground(), Optional(Rect{6, 592, 76, 22}));
    EXPECT_THAT(labelledLayout({4, 200, 640, 400}).recordingBackground(), Optional(Rect{10, 592, 76, 22}));
    EXPECT_THAT(labelledLayout({5, 200, 640, 400}).recordingBackground(), Optional(Rect{10, 592, 76, 22}));
    EXPECT_EQ(layoutOf(roomyRegion).recordingBackground(), std::nullopt);
}

TEST(RegionOverlayLayoutTest, SizeLabelStandsBelowTheRegion)
{
    EXPECT_THAT(labelledLayout(roomyRegion).sizeLabelBackground(), Optional(Rect{550, 161, 140, 24}));
    EXPECT_THAT(labelledLayout({300, 43, 641, 400}).sizeLabelBackground(), Optional(Rect{551, 4, 140, 24}));
}

TEST(RegionOverlayLayoutTest, SizeLabelLiesOnWholePoints)
{
    EXPECT_THAT(labelledLayout({300.7, 200.6, 640, 400}).sizeLabelBackground(), Optional(Rect{551, 162, 140, 24}));
}

TEST(RegionOverlayLayoutTest, SizeLabelGoesInsideNearTheScreensBottom)
{
    EXPECT_THAT(labelledLayout({300, 42, 640, 400}).sizeLabelBackground(), Optional(Rect{550, 52, 140, 24}));
    EXPECT_THAT(labelledLayout(screen).sizeLabelBackground(), Optional(Rect{686, 10, 140, 24}));
}

TEST(RegionOverlayLayoutTest, CoverageIsThePartsWithRoomForTheirShadows)
{
    RegionOverlayLayoutInput input;
    input.region = roomyRegion;
    input.screen = screen;
    input.guides = {{756, 0, 0, 982}, {0, 491, 1512, 0}};
    input.recordingTextWidth = 54;
    input.sizeLabelTextWidth = 120;
    const RegionOverlayLayout layout(input);
    const std::array<Rect, 4> bands = layout.borderBands();
    EXPECT_THAT(layout.coverage(),
                ElementsAre(bands[0], bands[1], bands[2], bands[3], layout.handle().grownBy(10),
                            layout.button(FrameButton::close).grownBy(10),
                            layout.button(FrameButton::settings).grownBy(10),
                            layout.button(FrameButton::record).grownBy(10), layout.resizeButton().grownBy(10),
                            layout.recordingBackground()->grownBy(10), Rect{753, -3, 6, 988}, Rect{-3, 488, 1518, 6},
                            layout.sizeLabelBackground()->grownBy(10)));
    EXPECT_EQ(layoutOf(roomyRegion).coverage().size(), 9U);
}

TEST(RegionOverlayLayoutTest, CoverageLeavesTheInsideOfTheFrameOut)
{
    const Rect ultraWide{0, 0, 3840, 2160};
    RegionOverlayLayoutInput input;
    input.region = {100, 100, 3600, 1900};
    input.screen = ultraWide;
    double area = 0;
    for (const Rect& rect : RegionOverlayLayout(input).coverage()) {
        EXPECT_FALSE(rect.contains({1000, 1000}));
        area += rect.width * rect.height;
    }
    EXPECT_LT(area, 70'000);
}

TEST(RegionOverlayLayoutTest, WindowAtRestHoldsEverythingThatIsPaintedAtRest)
{
    std::mt19937 random(3);
    const auto between = [&](int low, int high) { return std::uniform_int_distribution(low, high)(random); };
    for (int round = 0; round < 2000; ++round) {
        Rect region{0, 0, static_cast<double>(between(50, 1512)), static_cast<double>(between(50, 982))};
        region.x = between(0, 1512 - static_cast<int>(region.width));
        region.y = round % 4 == 0 ? 982 - region.height : between(0, 982 - static_cast<int>(region.height));
        // The record button of a lower region there hangs out of the window, as the next test has it.
        if (region.maxY() + 5 > screen.maxY() && region.height < 67)
            continue;
        const RegionOverlayLayout layout = layoutOf(region);
        const Rect window = region.grownBy(24);
        for (const Rect& rect : layout.coverage()) {
            EXPECT_EQ(rect.intersectedWith(window), rect)
                << "region " << region.x << ", " << region.y << ", " << region.width << ", " << region.height;
        }
        EXPECT_EQ(layout.borderOuter().intersectedWith(screen), layout.borderOuter());
        for (const Rect& band : layout.borderBands())
            EXPECT_EQ(band.intersectedWith(layout.borderOuter()), band);
    }
}

TEST(RegionOverlayLayoutTest, WindowAtRestCutsTheRecordButtonOfALowRegionAtTheScreensTop)
{
    const auto cutOff = [](double height) {
        const Rect region{300, screen.maxY() - height, 640, height};
        const RegionOverlayLayout layout = layoutOf(region);
        const double windowBottom = region.grownBy(24).minY();
        EXPECT_GE(layout.button(FrameButton::settings).minY(), windowBottom) << "the button above it is whole";
        return windowBottom - layout.button(FrameButton::record).minY();
    };
    // Tucked in at the top, the button ends 3 + 22 + 2 · 28 = 81 points below it; the window ends 24 below the region.
    EXPECT_EQ(cutOff(50), 7);
    EXPECT_EQ(cutOff(57), 0) << "the button is whole, its shadow is not";
    EXPECT_EQ(cutOff(67), -10) << "its shadow is whole too";
}

} // namespace
} // namespace nimbrale
