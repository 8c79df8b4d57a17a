#include "platform/x11/capture/held_places.h"

#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;

constexpr HeldPlaces::Clock::time_point start{};

TEST(HeldPlacesTest, aPlaceIsHeldUntilItsMoment)
{
    HeldPlaces places;
    EXPECT_FALSE(places.nextRelease());
    places.add(PixelRegion(0, 0, 10, 10), start + 100ms);
    EXPECT_EQ(places.nextRelease(), start + 100ms);
    places.release(start + 99ms);
    EXPECT_EQ(places.region(), PixelRegion(0, 0, 10, 10));
    places.release(start + 100ms);
    EXPECT_TRUE(places.region().isEmpty());
    EXPECT_FALSE(places.nextRelease());
}

TEST(HeldPlacesTest, aPlaceThatIsAddedAgainIsHeldForLonger)
{
    HeldPlaces places;
    places.add(PixelRegion(0, 0, 10, 10), start + 100ms);
    places.add(PixelRegion(0, 0, 10, 10), start + 300ms);
    places.add(PixelRegion(0, 0, 10, 10), start + 200ms);
    places.release(start + 299ms);
    EXPECT_EQ(places.region(), PixelRegion(0, 0, 10, 10));
    places.release(start + 300ms);
    EXPECT_TRUE(places.region().isEmpty());
}

TEST(HeldPlacesTest, whatIsLetGoOfMayBeHeldByAnother)
{
    HeldPlaces places;
    places.add(PixelRegion(0, 0, 10, 10), start + 100ms);
    places.add(PixelRegion(5, 0, 10, 10), start + 200ms);
    EXPECT_EQ(places.region(), PixelRegion(0, 0, 15, 10));
    EXPECT_EQ(places.nextRelease(), start + 100ms);
    places.release(start + 100ms);
    EXPECT_EQ(places.region(), PixelRegion(5, 0, 10, 10));
    EXPECT_EQ(places.nextRelease(), start + 200ms);
}

TEST(HeldPlacesTest, noPlaceAtAllIsNotHeld)
{
    HeldPlaces places;
    places.add({}, start + 100ms);
    EXPECT_FALSE(places.nextRelease());
}

} // namespace
} // namespace nimbrale::x11
