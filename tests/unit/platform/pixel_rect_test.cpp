#include "platform/pixel_rect.h"

#include <gtest/gtest.h>
#include <limits>

namespace nimbrale {
namespace {

constexpr int lowest = std::numeric_limits<int>::min();
constexpr int highest = std::numeric_limits<int>::max();
constexpr PixelRect desk{10, 20, 300, 200};

TEST(PixelRectTest, TheFarEdgesComeAfterTheLastPixel)
{
    EXPECT_EQ(desk.right(), 310);
    EXPECT_EQ(desk.bottom(), 220);
    EXPECT_TRUE(desk.contains({10, 20}));
    EXPECT_TRUE(desk.contains({309, 219}));
    EXPECT_FALSE(desk.contains({9, 20}));
    EXPECT_FALSE(desk.contains({10, 19}));
    EXPECT_FALSE(desk.contains({310, 219}));
    EXPECT_FALSE(desk.contains({309, 220}));
}

TEST(PixelRectTest, ARectangleWithoutAPixelIsEmpty)
{
    EXPECT_TRUE(PixelRect{}.isEmpty());
    EXPECT_TRUE((PixelRect{1, 2, 0, 5}.isEmpty()));
    EXPECT_TRUE((PixelRect{1, 2, 5, 0}.isEmpty()));
    EXPECT_TRUE((PixelRect{1, 2, -5, 5}.isEmpty()));
    EXPECT_TRUE((PixelRect{1, 2, 5, -1}.isEmpty()));
    EXPECT_FALSE((PixelRect{1, 2, 1, 1}.isEmpty()));
    EXPECT_EQ((PixelRect{0, 0, -5, -5}.area()), 0);
    EXPECT_EQ(desk.area(), 60000);
}

TEST(PixelRectTest, TheCommonPartLiesInBoth)
{
    EXPECT_EQ(desk.intersectedWith({0, 0, 50, 50}), (PixelRect{10, 20, 40, 30}));
    EXPECT_EQ(desk.intersectedWith({300, 210, 50, 50}), (PixelRect{300, 210, 10, 10}));
    EXPECT_EQ(desk.intersectedWith({20, 30, 5, 6}), (PixelRect{20, 30, 5, 6}));
    EXPECT_TRUE(desk.intersects({309, 219, 1, 1}));
}

TEST(PixelRectTest, RectanglesThatOnlyTouchHaveNothingInCommon)
{
    EXPECT_FALSE(desk.intersects({310, 20, 10, 10}));
    EXPECT_FALSE(desk.intersects({10, 220, 10, 10}));
    EXPECT_FALSE(desk.intersects({0, 20, 10, 10}));
    EXPECT_FALSE(desk.intersects({10, 10, 10, 10}));
    EXPECT_EQ(desk.intersectedWith({310, 20, 10, 10}), PixelRect{});
    EXPECT_EQ(desk.intersectedWith({50, 50, 0, 10}), PixelRect{});
    EXPECT_EQ(desk.intersectedWith({50, 50, 10, -3}), PixelRect{});
}

TEST(PixelRectTest, TheUnionHoldsBothAndAnEmptyOneAddsNothing)
{
    EXPECT_EQ(desk.unitedWith({0, 0, 5, 5}), (PixelRect{0, 0, 310, 220}));
    EXPECT_EQ(desk.unitedWith({400, 300, 5, 6}), (PixelRect{10, 20, 395, 286}));
    EXPECT_EQ(desk.unitedWith({0, 0, 0, 5}), desk);
    EXPECT_EQ((PixelRect{0, 0, 5, 0}.unitedWith(desk)), desk);
}

TEST(PixelRectTest, AMoveKeepsTheSize)
{
    EXPECT_EQ(desk.movedBy(-15, 7), (PixelRect{-5, 27, 300, 200}));
}

// Such numbers come from properties that any program may write.
TEST(PixelRectTest, NoNumbersOverflow)
{
    const PixelRect farRight{highest - 10, highest - 10, 100, 100};
    EXPECT_TRUE(farRight.intersects(farRight));
    EXPECT_TRUE(farRight.contains({highest, highest}));
    EXPECT_FALSE(farRight.intersects(desk));
    const PixelRect all{lowest, lowest, highest, highest};
    EXPECT_EQ(all.area(), std::int64_t{highest} * highest);
    EXPECT_EQ(all.intersectedWith({-20, -20, 100, 100}), (PixelRect{-20, -20, 19, 19}));
    EXPECT_EQ(all.unitedWith(farRight), (PixelRect{lowest, lowest, highest, highest}));
    EXPECT_EQ(farRight.movedBy(100, 100), (PixelRect{highest, highest, 100, 100}));
    EXPECT_EQ(all.movedBy(-1, -1), all);
    EXPECT_TRUE((PixelRect{lowest, lowest, lowest, lowest}.isEmpty()));
    EXPECT_EQ((PixelRect{lowest, lowest, lowest, lowest}.area()), 0);
    EXPECT_FALSE((PixelRect{highest, 0, lowest, highest}.intersects(desk)));
}

} // namespace
} // namespace nimbrale
