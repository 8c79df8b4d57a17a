#include "platform/x11/displays/free_areas.h"

#include <array>
#include <gtest/gtest.h>
#include <limits>

namespace nimbrale::x11 {
namespace {

constexpr PixelRect left{0, 0, 1280, 720};
constexpr PixelRect right{1280, 0, 800, 600};
constexpr PixelRect screen{0, 0, 2080, 720};
constexpr std::uint32_t most = std::numeric_limits<std::uint32_t>::max();

/// A strut that reserves its edge along the whole screen.
Strut whole(std::uint32_t fromLeft, std::uint32_t fromRight, std::uint32_t fromTop, std::uint32_t fromBottom)
{
    return *strutFrom({}, std::array{fromLeft, fromRight, fromTop, fromBottom});
}

PixelRect freeOf(const PixelRect& display, const SpaceClaims& claims)
{
    return freeAreas({display}, claims).front();
}

TEST(FreeAreasTest, WithoutClaimsADisplayIsFreeAsAWhole)
{
    EXPECT_EQ(freeAreas({left, right}, {.screen = screen}), (std::vector{left, right}));
    EXPECT_TRUE(freeAreas({}, {.screen = screen}).empty());
}

TEST(FreeAreasTest, EachEdgeIsTakenFromTheDisplayThatItReaches)
{
    const std::vector<PixelRect> both{left, right};
    EXPECT_EQ(freeAreas(both, {.screen = screen, .struts = {whole(40, 0, 0, 0)}}),
              (std::vector<PixelRect>{{40, 0, 1240, 720}, right}));
    EXPECT_EQ(freeAreas(both, {.screen = screen, .struts = {whole(0, 50, 0, 0)}}),
              (std::vector<PixelRect>{left, {1280, 0, 750, 600}}));
    EXPECT_EQ(freeAreas(both, {.screen = screen, .struts = {whole(0, 0, 30, 0)}}),
              (std::vector<PixelRect>{{0, 30, 1280, 690}, {1280, 30, 800, 570}}));
    // The right display ends 120 pixels above the screen's bottom: only what is deeper than that reaches it.
    EXPECT_EQ(freeAreas(both, {.screen = screen, .struts = {whole(0, 0, 0, 20)}}),
              (std::vector<PixelRect>{{0, 0, 1280, 700}, right}));
    EXPECT_EQ(freeAreas(both, {.screen = screen, .struts = {whole(0, 0, 0, 150)}}),
              (std::vector<PixelRect>{{0, 0, 1280, 570}, {1280, 0, 800, 570}}));
}

// The dock of a display that does not lie at the screen's edge reserves everything up to it.
TEST(FreeAreasTest, AStrutThatCrossesANeighborTakesFromTheFarDisplayOnly)
{
    EXPECT_EQ(freeAreas({left, right}, {.screen = screen, .struts = {whole(1280 + 60, 0, 0, 0)}}),
              (std::vector<PixelRect>{left, {1340, 0, 740, 600}}));
}

TEST(FreeAreasTest, AStrutIsMeasuredFromTheScreensEdgeAndNotFromTheDisplays)
{
    const PixelRect lower{0, 720, 1280, 600};
    const PixelRect tall{0, 0, 1280, 1320};
    EXPECT_EQ(freeAreas({left, lower}, {.screen = tall, .struts = {whole(0, 0, 720 + 40, 0)}}),
              (std::vector<PixelRect>{left, {0, 760, 1280, 560}}));
    EXPECT_EQ(freeAreas({left, lower}, {.screen = tall, .struts = {whole(0, 0, 30, 0)}}),
              (std::vector<PixelRect>{{0, 30, 1280, 690}, lower}));
}

TEST(FreeAreasTest, AStrutTakesHalfOfADisplayButNoMore)
{
    const auto freeWith = [](const Strut& strut) { return freeOf(left, {.screen = left, .struts = {strut}}); };
    EXPECT_EQ(freeWith(whole(0, 0, 360, 0)), (PixelRect{0, 360, 1280, 360}));
    EXPECT_EQ(freeWith(whole(0, 0, 361, 0)), left);
    EXPECT_EQ(freeWith(whole(640, 0, 0, 0)), (PixelRect{640, 0, 640, 720}));
    EXPECT_EQ(freeWith(whole(641, 0, 0, 0)), left);
    EXPECT_EQ(freeWith(whole(0, 640, 0, 0)), (PixelRect{0, 0, 640, 720}));
    EXPECT_EQ(freeWith(whole(0, 641, 0, 0)), left);
    EXPECT_EQ(freeWith(whole(0, 0, 0, 360)), (PixelRect{0, 0, 1280, 360}));
    EXPECT_EQ(freeWith(whole(0, 0, 0, 361)), left);
    EXPECT_EQ(freeWith(whole(1, 1, 1, 1)), (PixelRect{1, 1, 1278, 718}));
}

// A display may reach over the screen's edge for a moment while both change.
TEST(FreeAreasTest, AnEdgeThatIsNotReservedTakesNothingFromADisplayBeyondTheScreen)
{
    EXPECT_EQ(freeOf({-20, -10, 1280, 720}, {.screen = {0, 0, 640, 360}, .struts = {whole(0, 0, 0, 0)}}),
              (PixelRect{-20, -10, 1280, 720}));
}

TEST(FreeAreasTest, AStrutCountsAlongItsPartOfTheEdgeBothEndsIncluded)
{
    Strut top;
    top.top = 30;
    const auto reaches = [&top](std::uint32_t start, std::uint32_t end) {
        top.topStart = start;
        top.topEnd = end;
        return freeOf(right, {.screen = screen, .struts = {top}}) != right;
    };
    EXPECT_FALSE(reaches(0, 1279));
    EXPECT_TRUE(reaches(0, 1280));
    EXPECT_TRUE(reaches(2079, 3000));
    EXPECT_FALSE(reaches(2080, 3000));
    EXPECT_TRUE(reaches(1500, 1500));

    Strut side;
    side.right = 30;
    side.rightStart = 600;
    side.rightEnd = 719;
    EXPECT_EQ(freeOf(right, {.screen = screen, .struts = {side}}), right);
    side.rightStart = 599;
    EXPECT_EQ(freeOf(right, {.screen = screen, .struts = {side}}), (PixelRect{1280, 0, 770, 600}));
    Strut near;
    near.left = 30;
    near.leftStart = 720;
    near.leftEnd = 800;
    EXPECT_EQ(freeOf(left, {.screen = screen, .struts = {near}}), left);
    near.leftStart = 719;
    EXPECT_EQ(freeOf(left, {.screen = screen, .struts = {near}}), (PixelRect{30, 0, 1250, 720}));
    Strut bottom;
    bottom.bottom = 30;
    bottom.bottomStart = 1280;
    bottom.bottomEnd = 2079;
    EXPECT_EQ(freeOf(left, {.screen = screen, .struts = {bottom}}), left);
    bottom.bottomStart = 1279;
    EXPECT_EQ(freeOf(left, {.screen = screen, .struts = {bottom}}), (PixelRect{0, 0, 1280, 690}));
}

TEST(FreeAreasTest, TheCommonAreaCountsForALoneDisplayOnly)
{
    const SpaceClaims claims{.screen = screen, .common = PixelRect{0, 27, 1280, 693}};
    EXPECT_EQ(freeOf(left, claims), (PixelRect{0, 27, 1280, 693}));
    EXPECT_EQ(freeAreas({left, right}, claims), (std::vector{left, right}));
}

TEST(FreeAreasTest, TheLargestOfTheToldAreasOnADisplayCountsAndNotTheCommonOne)
{
    const SpaceClaims claims{.screen = screen,
                             .perDisplay = {{1270, 0, 810, 600}, {0, 27, 1280, 693}, {0, 0, 30, 30}},
                             .common = PixelRect{0, 300, 100, 100}};
    EXPECT_EQ(freeAreas({left, right}, claims), (std::vector<PixelRect>{{0, 27, 1280, 693}, {1280, 0, 800, 600}}));
    EXPECT_EQ(freeOf(left, claims), (PixelRect{0, 27, 1280, 693}));
}

TEST(FreeAreasTest, ClaimsAddUp)
{
    const SpaceClaims claims{
        .screen = left, .struts = {whole(0, 0, 30, 0), whole(40, 0, 0, 0)}, .common = PixelRect{0, 0, 1280, 700}};
    EXPECT_EQ(freeOf(left, claims), (PixelRect{40, 30, 1240, 670}));
}

TEST(FreeAreasTest, ADisplayThatWouldBeLeftWithoutAnyPartStaysWhole)
{
    EXPECT_EQ(freeOf(left, {.screen = screen, .common = PixelRect{5000, 5000, 100, 100}}), left);
    EXPECT_EQ(freeOf(left, {.screen = screen, .common = PixelRect{10, 10, 0, 0}}), left);
    EXPECT_EQ(freeOf(left, {.screen = screen,
                            .struts = {whole(0, 0, 360, 0), whole(0, 0, 0, 360)},
                            .perDisplay = {{0, 0, 1280, 360}}}),
              left);
}

// Any program may write them.
TEST(FreeAreasTest, NoNumbersInTheClaimsDoHarm)
{
    constexpr int highest = std::numeric_limits<int>::max();
    constexpr int lowest = std::numeric_limits<int>::min();
    const std::array values{0U, 1U, 700U, 0x7fffffffU, 0x80000000U, most};
    for (const std::uint32_t value : values) {
        for (const std::uint32_t other : values) {
            const Strut strut{value, other, value, other, other, value, other, value, value, other, value, other};
            const auto rectangles = rectanglesFrom(std::array{value, other, other, value, value, value, other, other});
            const SpaceClaims claims{screen, {strut, strut}, rectangles, rectangles.front()};
            for (const PixelRect& display : {left, right, PixelRect{lowest, highest, highest, highest}}) {
                const PixelRect area = freeOf(display, claims);
                EXPECT_FALSE(area.isEmpty());
                EXPECT_EQ(area.intersectedWith(display), area) << value << " " << other;
            }
        }
    }
}

TEST(FreeAreasTest, AStrutIsReadFromTwelveNumbersOrElseFromFour)
{
    const std::array partial{1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 10U, 11U, 12U};
    const std::array four{20U, 21U, 22U, 23U};
    EXPECT_EQ(strutFrom(partial, four), (Strut{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    const std::span<const std::uint32_t> eleven = std::span(partial).first(11);
    EXPECT_EQ(strutFrom(eleven, four), (Strut{20, 21, 22, 23, 0, most, 0, most, 0, most, 0, most}));
    EXPECT_EQ(strutFrom(eleven, std::span(four).first(3)), std::nullopt);
    EXPECT_EQ(strutFrom({}, {}), std::nullopt);
}

TEST(FreeAreasTest, AnIncompleteRectangleIsDropped)
{
    EXPECT_EQ(rectanglesFrom(std::array{1U, 2U, 3U, 4U, 5U, 6U, 7U}), (std::vector<PixelRect>{{1, 2, 3, 4}}));
    EXPECT_EQ(rectanglesFrom(std::array{1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U}),
              (std::vector<PixelRect>{{1, 2, 3, 4}, {5, 6, 7, 8}}));
    EXPECT_TRUE(rectanglesFrom({}).empty());
}

TEST(FreeAreasTest, TheCommonAreaIsTheDesktopsOrElseTheLastOne)
{
    const std::array two{1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U};
    EXPECT_EQ(commonAreaFrom(two, 0), (PixelRect{1, 2, 3, 4}));
    EXPECT_EQ(commonAreaFrom(two, 1), (PixelRect{5, 6, 7, 8}));
    EXPECT_EQ(commonAreaFrom(two, 2), (PixelRect{5, 6, 7, 8}));
    EXPECT_EQ(commonAreaFrom(two, std::numeric_limits<std::uint32_t>::max()), (PixelRect{5, 6, 7, 8}));
    EXPECT_EQ(commonAreaFrom({}, 0), std::nullopt);
}

} // namespace
} // namespace nimbrale::x11
