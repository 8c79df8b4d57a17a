#include "geometry/display_geometry.h"

#include "tests/fakes/fake_screens.h"

#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <unordered_set>

namespace nimbrale {
namespace {

const DisplayGeometry laptop{{1512, 982}, {0, 0, 1512, 982}, 24};

TEST(DisplayGeometryTest, SmallRegionGrowsToFiftyPointsAtItsOrigin)
{
    EXPECT_EQ(laptop.clamp({100, 200, 10, 10}, PreserveSize::yes), (Rect{100, 200, 50, 50}));
    EXPECT_EQ(laptop.clamp({100, 200, 10, 10}, PreserveSize::no), (Rect{100, 200, 50, 50}));
}

TEST(DisplayGeometryTest, MovedRegionIsPushedBackWhole)
{
    EXPECT_EQ(laptop.clamp({-30, 100, 800, 600}, PreserveSize::yes), (Rect{0, 100, 800, 600}));
    EXPECT_EQ(laptop.clamp({1000, 900, 800, 600}, PreserveSize::yes), (Rect{712, 382, 800, 600}));
}

TEST(DisplayGeometryTest, ResizedRegionIsCutAtTheEdges)
{
    EXPECT_EQ(laptop.clamp({-30, 100, 800, 600}, PreserveSize::no), (Rect{0, 100, 770, 600}));
    EXPECT_EQ(laptop.clamp({100, 500, 800, 600}, PreserveSize::no), (Rect{100, 500, 800, 482}));
}

TEST(DisplayGeometryTest, ResizedRegionOutsideOfTheDisplayKeepsItsSizeAndIsPushedInside)
{
    EXPECT_EQ(laptop.clamp({2000, 100, 300, 200}, PreserveSize::no), (Rect{1212, 100, 300, 200}));
    EXPECT_EQ(laptop.clamp({-500, -500, 20, 200}, PreserveSize::no), (Rect{0, 0, 50, 200}));
}

TEST(DisplayGeometryTest, RegionThatOnlyTouchesTheDisplayCountsAsOutside)
{
    EXPECT_EQ(laptop.clamp({1512, 100, 300, 200}, PreserveSize::no), (Rect{1212, 100, 300, 200}));
}

TEST(DisplayGeometryTest, RegionWiderThanTheDisplayGetsItsWidth)
{
    EXPECT_EQ(laptop.clamp({300, 10, 2000, 100}, PreserveSize::yes), (Rect{0, 10, 1512, 100}));
    EXPECT_EQ(laptop.clamp({-10, 10, 2000, 100}, PreserveSize::no), (Rect{0, 10, 1512, 100}));
}

TEST(DisplayGeometryTest, FractionsAreRoundedOutwardFirst)
{
    EXPECT_EQ(laptop.clamp({10.4, 20.6, 100.2, 50.1}, PreserveSize::yes), (Rect{10, 20, 101, 51}));
}

TEST(DisplayGeometryTest, MenuBarHeightIsZeroWhenTheFramesDifferByAPointOrLess)
{
    Screen screen = makeScreen(1, {0, 0, 1512, 982});
    EXPECT_EQ(menuBarHeightOf(screen), 0);
    screen.visibleFrame = {0, 0, 1512, 981};
    EXPECT_EQ(menuBarHeightOf(screen), 0);
    screen.visibleFrame = {0, 0, 1512, 981.5};
    EXPECT_EQ(menuBarHeightOf(screen), 0);
    screen.visibleFrame = {0, 60, 1512, 897};
    EXPECT_EQ(menuBarHeightOf(screen), 24);
}

TEST(DisplayGeometryTest, GeometryOfAScreenTakesItsFrame)
{
    Screen screen = makeScreen(1, {100, -50, 1280, 1024});
    screen.visibleFrame.height -= 31;
    EXPECT_EQ(DisplayGeometry::of(screen), (DisplayGeometry{{1280, 1024}, {100, -50, 1280, 1024}, 30}));
    EXPECT_EQ(DisplayGeometry::of(screen, {640, 512}).size, (Size{640, 512}));
}

TEST(DisplayGeometryTest, ADisplayOfAFractionOfAPointHasTheWholePointsThatFit)
{
    const Screen screen = makeScreen(1, {0, 0, 1366 / 1.5, 767 / 1.5}, 1.5);
    EXPECT_EQ(DisplayGeometry::of(screen), (DisplayGeometry{{910, 511}, screen.frame, 0}));
    EXPECT_EQ(DisplayGeometry::of(screen, {1000.99, 500.01}).size, (Size{1000, 500}));
    // 66 pixels are 60 points, though the quotient is a little less.
    ASSERT_LT(66 / 1.1, 60);
    EXPECT_EQ(DisplayGeometry::of(screen, {66 / 1.1, 55 / 1.1}).size, (Size{60, 50}));
}

TEST(DisplayGeometryTest, ScreenCoordinatesGrowUpwardFromTheScreensBottom)
{
    const DisplayGeometry side{{1280, 1024}, {1512, -100, 1280, 1024}, 0};
    EXPECT_EQ(side.screenRect({10, 20, 300, 200}), (Rect{1522, 704, 300, 200}));
    EXPECT_EQ(side.region({1522, 704, 300, 200}), (Rect{10, 20, 300, 200}));
}

TEST(DisplayGeometryTest, GuidesSpanTheDisplayWithoutThickness)
{
    const DisplayGeometry side{{1280, 1024}, {1512, -100, 1280, 1024}, 24};
    EXPECT_EQ(side.verticalGuideRect(640), (Rect{2152, -100, 0, 1024}));
    EXPECT_EQ(side.horizontalGuideRect(24), (Rect{1512, 900, 1280, 0}));
}

TEST(DisplayGeometryTest, SnapAreaIsTheDisplayBelowTheMenuBar)
{
    EXPECT_EQ(laptop.snapArea(), (Rect{0, 24, 1512, 958}));
}

TEST(DisplayGeometryTest, MouseOnTheBoundaryBelongsToTheFirstScreenThatHoldsIt)
{
    FakeScreens screens;
    screens.list = {makeScreen(1, {0, 0, 100, 100}), makeScreen(2, {100, 0, 100, 100}),
                    makeScreen(3, {0, 100, 100, 100})};
    const auto at = [&](double x, double y) {
        screens.mouse = {x, y};
        const auto screen = displayUnderMouse(screens);
        return screen ? screen->displayID : 0;
    };
    EXPECT_EQ(at(99.5, 50), 1U);
    EXPECT_EQ(at(100, 50), 2U) << "a screen owns its left edge";
    EXPECT_EQ(at(50, 100), 1U) << "a screen owns its top edge";
    EXPECT_EQ(at(50, 100.5), 3U);
    EXPECT_EQ(at(50, 0), 0U);
    EXPECT_EQ(at(200, 50), 0U);
    screens.list.push_back(makeScreen(4, {0, 0, 300, 300}));
    EXPECT_EQ(at(100, 50), 2U);
    std::swap(screens.list.front(), screens.list.back());
    EXPECT_EQ(at(100, 50), 4U) << "where screens overlap, the order decides";
}

TEST(DisplayGeometryTest, DisplayThatIsLeftOutIsPassedOver)
{
    FakeScreens screens;
    screens.list = {makeScreen(1, {0, 0, 100, 100}), makeScreen(2, {0, 0, 100, 100})};
    screens.mouse = {50, 50};
    EXPECT_EQ(displayUnderMouse(screens, 1)->displayID, 2U);
    screens.list.pop_back();
    EXPECT_EQ(displayUnderMouse(screens, 1), std::nullopt);
}

TEST(DisplayGeometryTest, StoredTopCountsFromOnePointBelowTheMenuBar)
{
    EXPECT_EQ(laptop.regionFromStored({0, 0, 800, 600}), (Rect{0, 25, 800, 600}));
    EXPECT_EQ(laptop.storedFromRegion({0, 25, 800, 600}), (StoredRegion{0, 0, 800, 600}));
    EXPECT_EQ(laptop.storedFromRegion({0, 24, 800, 600}), (StoredRegion{0, -1, 800, 600}));
}

TEST(DisplayGeometryTest, StoringTruncatesTowardZero)
{
    EXPECT_EQ(laptop.storedFromRegion({99.9, 24.5, 800.9, 600.5}), (StoredRegion{99, 0, 800, 600}));
    EXPECT_EQ(laptop.storedFromRegion({-0.5, 20.2, 50, 50}), (StoredRegion{0, -4, 50, 50}));
}

TEST(DisplayGeometryTest, LoadingClampsWithTheSizePreserved)
{
    EXPECT_EQ(laptop.regionFromStored({-40, -400, 10, 5000}), (Rect{0, 0, 50, 982}));
    EXPECT_EQ(laptop.regionFromStored({1400, 900, 800, 600}), (Rect{712, 382, 800, 600}));
}

TEST(DisplayGeometryTest, LoadingSurvivesTheLargestIntegers)
{
    constexpr auto largest = std::numeric_limits<std::int64_t>::max();
    constexpr auto smallest = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(laptop.regionFromStored({smallest, smallest, largest, largest}), (Rect{0, 0, 1512, 982}));
    EXPECT_EQ(laptop.regionFromStored({largest, largest, smallest, smallest}), (Rect{1462, 932, 50, 50}));
}

TEST(DisplayGeometryTest, TruncationAcceptsWhatFitsAndNothingElse)
{
    EXPECT_EQ(truncatedToInteger(-0x1p63), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(truncatedToInteger(0x1p62), std::int64_t{1} << 62);
    EXPECT_EQ(truncatedToInteger(-1.9), -1);
}

TEST(DisplayGeometryDeathTest, StoringWhatDoesNotFitEndsTheProgram)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
    EXPECT_DEATH((void)laptop.storedFromRegion({infinity, 0, 50, 50}), "not finite");
    EXPECT_DEATH((void)laptop.storedFromRegion({0, notANumber, 50, 50}), "not finite");
    EXPECT_DEATH((void)laptop.storedFromRegion({0, 0, 0x1p63, 50}), "does not fit");
    EXPECT_DEATH((void)laptop.storedFromRegion({-0x1.1p63, 0, 50, 50}), "does not fit");
}

TEST(DisplayGeometryTest, DragZonesCanBeHashed)
{
    const std::unordered_set<DragZone> zones{DragZone::move, DragZone::resize, DragZone::move};
    EXPECT_EQ(zones.size(), 2U);
}

class RandomGeometryTest : public testing::Test {
protected:
    double between(double low, double high) { return std::uniform_real_distribution(low, high)(random); }
    DisplayGeometry geometry()
    {
        const Size size{std::floor(between(640, 4000)), std::floor(between(480, 2500))};
        return {size,
                {std::floor(between(-4000, 4000)), std::floor(between(-4000, 4000)), size.width, size.height},
                std::floor(between(0, 40))};
    }
    Rect region() { return {between(-5000, 5000), between(-5000, 5000), between(0, 5000), between(0, 5000)}; }

    std::mt19937 random{1};
};

TEST_F(RandomGeometryTest, ClampedRegionsLieOnTheDisplayAndStayAsTheyAre)
{
    for (int round = 0; round < 5000; ++round) {
        const DisplayGeometry display = geometry();
        for (const PreserveSize preserve : {PreserveSize::yes, PreserveSize::no}) {
            const Rect clamped = display.clamp(region(), preserve);
            EXPECT_GE(clamped.minX(), 0);
            EXPECT_GE(clamped.minY(), 0);
            EXPECT_LE(clamped.maxX(), display.size.width);
            EXPECT_LE(clamped.maxY(), display.size.height);
            EXPECT_GE(clamped.width, 50);
            EXPECT_GE(clamped.height, 50);
            EXPECT_EQ(clamped.integral(), clamped);
            EXPECT_EQ(display.clamp(clamped, PreserveSize::yes), clamped);
            EXPECT_EQ(display.clamp(clamped, PreserveSize::no), clamped);
        }
    }
}

TEST_F(RandomGeometryTest, ScreenAndRegionCoordinatesAreInverse)
{
    for (int round = 0; round < 2000; ++round) {
        const DisplayGeometry display = geometry();
        const Rect whole = region().integral();
        EXPECT_EQ(display.region(display.screenRect(whole)), whole);
        EXPECT_EQ(display.screenRect(display.region(whole)), whole);
    }
}

TEST_F(RandomGeometryTest, StoringAClampedRegionAndLoadingItChangesNothing)
{
    for (int round = 0; round < 2000; ++round) {
        const DisplayGeometry display = geometry();
        const Rect clamped = display.clamp(region(), PreserveSize::yes);
        const StoredRegion stored = display.storedFromRegion(clamped);
        EXPECT_EQ(display.regionFromStored(stored), clamped);
        EXPECT_EQ(display.storedFromRegion(display.regionFromStored(stored)), stored);
    }
}

} // namespace
} // namespace nimbrale
