// Whether what lies at a place of the root is still the display that a stream shows.

#include "platform/x11/capture/display_places.h"

#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

constexpr DisplayPlace left{1, {0, 0, 1280, 720}};
constexpr DisplayPlace right{2, {1280, 0, 800, 600}};
constexpr DisplayPlace rightMoved{2, {960, 0, 800, 600}};
constexpr DisplayPlace rightShrunk{2, {1280, 0, 640, 480}};

class DisplayPlacesTest : public testing::Test {
protected:
    DisplayPlacesTest() { places.learn({left, right}); }

    DisplayPlaces places;
};

TEST_F(DisplayPlacesTest, NothingIsCertainBeforeTheServerWasAsked)
{
    const DisplayPlaces fresh;
    EXPECT_TRUE(fresh.areDoubted());
    EXPECT_FALSE(fresh.isCertain(left));
}

TEST_F(DisplayPlacesTest, ADisplayIsCertainWhereItIsKnownToLie)
{
    EXPECT_FALSE(places.areDoubted());
    EXPECT_TRUE(places.isCertain(left));
    EXPECT_TRUE(places.isCertain(right));
    EXPECT_FALSE(places.isCertain(rightMoved));
    EXPECT_FALSE(places.isCertain(rightShrunk));
    EXPECT_FALSE(places.isCertain({3, left.pixels})) << "another display at the same place";
}

TEST_F(DisplayPlacesTest, NewsLeaveNothingCertainUntilTheAnswer)
{
    places.doubt();
    EXPECT_FALSE(places.isCertain(left));
    EXPECT_FALSE(places.isCertain(right));
    places.learn({left, rightMoved});
    EXPECT_TRUE(places.isCertain(left)) << "the change was none of its own";
    EXPECT_FALSE(places.isCertain(right));
    EXPECT_TRUE(places.isCertain(rightMoved));
    places.doubt();
    places.learn({left});
    EXPECT_FALSE(places.isCertain(rightMoved)) << "it has gone";
}

TEST_F(DisplayPlacesTest, APictureIsCertainWhenNoNewsCameWhileItWasDrawn)
{
    const auto begun = places.now();
    EXPECT_TRUE(places.wasCertain(right, begun));
    EXPECT_FALSE(places.wasCertain(rightMoved, begun));
    places.doubt();
    EXPECT_FALSE(places.wasCertain(right, begun));
    places.learn({left, right});
    EXPECT_FALSE(places.wasCertain(right, begun)) << "it may have been elsewhere in between";
    EXPECT_TRUE(places.wasCertain(right, places.now()));
}

TEST_F(DisplayPlacesTest, WhoComputesPlacesMayHaveHeardFirst)
{
    places.compare(right);
    EXPECT_FALSE(places.areDoubted()) << "the same is known here";
    places.compare(rightMoved);
    EXPECT_TRUE(places.areDoubted());
    places.learn({left, right});
    EXPECT_FALSE(places.isCertain(rightMoved)) << "or last: the server's answer counts";
}

} // namespace
} // namespace nimbrale::x11
