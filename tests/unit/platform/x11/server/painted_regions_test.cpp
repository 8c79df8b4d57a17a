#include "platform/x11/server/painted_regions.h"

#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

TEST(PaintedRegionsTest, aWindowThatNothingWasToldOfHasNone)
{
    PaintedRegions regions;
    EXPECT_FALSE(regions.take(7));
}

TEST(PaintedRegionsTest, everythingPaintedSinceTheLastTakeIsKept)
{
    PaintedRegions regions;
    regions.set(7, PixelRegion(0, 0, 10, 10));
    regions.set(7, PixelRegion(20, 0, 10, 10));
    auto taken = regions.take(7);
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->now, PixelRegion(20, 0, 10, 10));
    PixelRegion both(0, 0, 10, 10);
    both.add(20, 0, 10, 10);
    EXPECT_EQ(taken->sinceTaken, both);
    taken = regions.take(7);
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->sinceTaken, PixelRegion(20, 0, 10, 10));
}

TEST(PaintedRegionsTest, theVersionTellsOfEverySet)
{
    PaintedRegions regions;
    const std::uint64_t before = regions.version();
    regions.set(7, PixelRegion(0, 0, 10, 10));
    const std::uint64_t after = regions.version();
    EXPECT_NE(before, after);
    (void)regions.take(7);
    EXPECT_EQ(regions.version(), after);
}

TEST(PaintedRegionsTest, aForgottenWindowHasNone)
{
    PaintedRegions regions;
    regions.set(7, PixelRegion(0, 0, 10, 10));
    regions.set(8, PixelRegion(0, 0, 10, 10));
    regions.forget(7);
    EXPECT_FALSE(regions.take(7));
    EXPECT_TRUE(regions.take(8));
}

} // namespace
} // namespace nimbrale::x11
