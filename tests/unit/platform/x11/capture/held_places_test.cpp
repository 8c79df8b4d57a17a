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
    places.add(PixelRegion(0, 0, 10, 10), start, {100ms});
    EXPECT_EQ(places.nextRelease(), start + 100ms);
    places.release(start + 99ms, start);
    EXPECT_EQ(places.region(), PixelRegion(0, 0, 10, 10));
    places.release(start + 100ms, start);
    EXPECT_TRUE(places.region().isEmpty());
    EXPECT_FALSE(places.nextRelease());
}

TEST(HeldPlacesTest, aPlaceThatIsAddedAgainIsHeldForLonger)
{
    HeldPlaces places;
    places.add(PixelRegion(0, 0, 10, 10), start, {100ms});
    places.add(PixelRegion(0, 0, 10, 10), start, {300ms});
    places.add(PixelRegion(0, 0, 10, 10), start, {200ms});
    places.release(start + 299ms, start);
    EXPECT_EQ(places.region(), PixelRegion(0, 0, 10, 10));
    places.release(start + 300ms, start);
    EXPECT_TRUE(places.region().isEmpty());
}

TEST(HeldPlacesTest, whatIsLetGoOfMayBeHeldByAnother)
{
    HeldPlaces places;
    places.add(PixelRegion(0, 0, 10, 10), start, {100ms});
    places.add(PixelRegion(5, 0, 10, 10), start, {200ms});
    EXPECT_EQ(places.region(), PixelRegion(0, 0, 15, 10));
    EXPECT_EQ(places.nextRelease(), start + 100ms);
    places.release(start + 100ms, start);
    EXPECT_EQ(places.region(), PixelRegion(5, 0, 10, 10));
    EXPECT_EQ(places.nextRelease(), start + 200ms);
}

TEST(HeldPlacesTest, placesThatAreTakenOverAreHeldAsLongAsThere)
{
    HeldPlaces others;
    others.add(PixelRegion(0, 0, 10, 10), start, {100ms});
    others.add(PixelRegion(20, 0, 10, 10), start + 50ms, {200ms, 300ms});
    HeldPlaces places;
    places.add(PixelRegion(0, 0, 10, 10), start + 10ms, {20ms});
    places.add(others);
    EXPECT_EQ(places.requiredProof(start + 1s), start + 50ms);
    EXPECT_EQ(places.nextRelease(), start + 100ms);
    places.release(start + 100ms, start + 9ms);
    EXPECT_EQ(places.bounds().size(), 2U) << "the first was left again later";
    places.release(start + 100ms, start + 10ms);
    EXPECT_EQ(places.region(), PixelRegion(20, 0, 10, 10));
    places.release(start + 549ms, start);
    EXPECT_FALSE(places.region().isEmpty());
    places.release(start + 550ms, start);
    EXPECT_TRUE(places.region().isEmpty()) << "and no longer without a proof";
    EXPECT_EQ(others.bounds().size(), 2U);
}

TEST(HeldPlacesTest, aPlaceIsHeldUntilItIsProvenThatItWasLeft)
{
    HeldPlaces places;
    places.add(PixelRegion(0, 0, 10, 10), start + 50ms, {100ms});
    EXPECT_EQ(places.requiredProof(start + 1s), start + 50ms);
    places.release(start + 150ms, start + 49ms);
    EXPECT_FALSE(places.region().isEmpty());
    EXPECT_EQ(places.nextRelease(), start + 150ms);
    places.release(start + 149ms, start + 50ms);
    EXPECT_FALSE(places.region().isEmpty()) << "a proof does not end its time";
    places.release(start + 150ms, start + 50ms);
    EXPECT_TRUE(places.region().isEmpty());
    EXPECT_FALSE(places.requiredProof(start + 1s));
}

TEST(HeldPlacesTest, aPlaceThatIsLeftAgainNeedsAProofOfTheLastTime)
{
    HeldPlaces places;
    places.add(PixelRegion(0, 0, 10, 10), start, {100ms});
    places.add(PixelRegion(0, 0, 10, 10), start + 50ms, {100ms});
    EXPECT_EQ(places.requiredProof(start + 1s), start + 50ms);
    places.release(start + 150ms, start + 49ms);
    EXPECT_FALSE(places.region().isEmpty());
    places.release(start + 150ms, start + 50ms);
    EXPECT_TRUE(places.region().isEmpty());
}

TEST(HeldPlacesTest, aProofIsNotWaitedForForever)
{
    HeldPlaces places;
    places.add(PixelRegion(0, 0, 10, 10), start + 50ms, {100ms});
    places.release(start + 150ms + HeldPlaces::longestPatience - 1ms, start);
    EXPECT_FALSE(places.region().isEmpty());
    places.release(start + 150ms + HeldPlaces::longestPatience, start);
    EXPECT_TRUE(places.region().isEmpty());
}

TEST(HeldPlacesTest, aFadeBeginsOnceItIsProvenThatThePlaceWasLeftAndEndsOnceItsEndIsProven)
{
    constexpr HeldPlaces::Hold fading{.time = 500ms, .patience = 1000ms, .fade = 500ms};
    HeldPlaces places;
    places.add(PixelRegion(0, 0, 10, 10), start + 50ms, fading);
    EXPECT_EQ(places.nextRelease(), start + 50ms) << "the proof is waited for at once";
    EXPECT_EQ(places.requiredProof(start + 50ms), start + 50ms);
    places.release(start + 900ms, start + 49ms);
    EXPECT_FALSE(places.region().isEmpty()) << "a busy manager has not begun";
    places.release(start + 900ms, start + 50ms);
    EXPECT_EQ(places.nextRelease(), start + 1400ms);
    EXPECT_FALSE(places.requiredProof(start + 1399ms)) << "nothing is to be proven meanwhile";
    EXPECT_EQ(places.requiredProof(start + 1400ms), start + 1400ms);
    places.release(start + 1400ms, start + 1399ms);
    EXPECT_FALSE(places.region().isEmpty()) << "the manager may not have shown the end";
    places.release(start + 1400ms, start + 1400ms);
    EXPECT_TRUE(places.region().isEmpty());
}

TEST(HeldPlacesTest, aFadeIsNotWaitedForForever)
{
    constexpr HeldPlaces::Hold fading{.time = 500ms, .patience = 1000ms, .fade = 500ms};
    HeldPlaces never;
    never.add(PixelRegion(0, 0, 10, 10), start + 50ms, fading);
    never.release(start + 1549ms, start);
    EXPECT_FALSE(never.region().isEmpty());
    never.release(start + 1550ms, start);
    EXPECT_TRUE(never.region().isEmpty());

    HeldPlaces onceOnly;
    onceOnly.add(PixelRegion(0, 0, 10, 10), start + 50ms, fading);
    onceOnly.release(start + 100ms, start + 50ms);
    onceOnly.release(start + 1599ms, start + 50ms);
    EXPECT_FALSE(onceOnly.region().isEmpty());
    onceOnly.release(start + 1600ms, start + 50ms);
    EXPECT_TRUE(onceOnly.region().isEmpty());
}

TEST(HeldPlacesTest, aPlaceThatIsLeftAgainWhileItFadesFadesAnew)
{
    constexpr HeldPlaces::Hold fading{.time = 500ms, .patience = 1000ms, .fade = 500ms};
    HeldPlaces places;
    places.add(PixelRegion(0, 0, 10, 10), start, fading);
    places.release(start + 100ms, start);
    places.add(PixelRegion(0, 0, 10, 10), start + 300ms, fading);
    places.release(start + 600ms, start + 600ms);
    EXPECT_FALSE(places.region().isEmpty());
    places.release(start + 1100ms, start + 1100ms);
    EXPECT_TRUE(places.region().isEmpty());
}

TEST(HeldPlacesTest, timeInWhichTheCompositingManagerIsNotAtWorkDoesNotCountForTheLackOfAProof)
{
    HeldPlaces places;
    places.add(PixelRegion(0, 0, 10, 10), start + 50ms, {.time = 100ms, .patience = 1000ms});
    places.release(start + 1100ms, {start, 700ms});
    places.release(start + 1849ms, {start, 0ms});
    EXPECT_FALSE(places.region().isEmpty());
    places.release(start + 1850ms, {start, 0ms});
    EXPECT_TRUE(places.region().isEmpty());
}

TEST(HeldPlacesTest, timeBeforeAPlaceWasLeftDoesNotMakeItsPatienceLonger)
{
    HeldPlaces places;
    places.add(PixelRegion(0, 0, 10, 10), start + 50ms, {.time = 100ms, .patience = 1000ms});
    places.release(start + 60ms, {start, 700ms});
    places.release(start + 1160ms, {start, 0ms});
    EXPECT_TRUE(places.region().isEmpty());
}

TEST(HeldPlacesTest, aPlaceThatWaitsForNoProofIsHeldForItsTimeAlone)
{
    HeldPlaces places;
    places.add(PixelRegion(0, 0, 10, 10), start, {.time = 100ms, .patience = 0ms});
    places.release(start + 100ms, {start - 1ms, 100ms});
    EXPECT_TRUE(places.region().isEmpty());
}

TEST(HeldPlacesTest, noPlaceAtAllIsNotHeld)
{
    HeldPlaces places;
    places.add({}, start, {100ms});
    EXPECT_FALSE(places.nextRelease());
}

} // namespace
} // namespace nimbrale::x11
