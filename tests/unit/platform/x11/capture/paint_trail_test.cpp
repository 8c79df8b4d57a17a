#include "platform/x11/capture/paint_trail.h"

#include <gtest/gtest.h>

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;

constexpr PaintTrail::Clock::time_point start{};
constexpr PixelRect before{100, 100, 50, 50};
constexpr PixelRect place{110, 120, 50, 50};
constexpr PixelRect larger{90, 80, 120, 100};
const PixelRegion oldPaint(0, 0, 10, 5);
const PixelRegion newPaint(0, 30, 10, 5);

PixelRegion at(const PixelRect& corner, const PixelRegion& painted)
{
    PixelRegion region(painted);
    region.translate(corner.x, corner.y);
    return region;
}

class PaintTrailTest : public testing::Test {
protected:
    PixelRegion everyCombination()
    {
        PixelRegion all = at(before, oldPaint);
        all |= at(before, newPaint);
        all |= at(place, oldPaint);
        all |= at(place, newPaint);
        return all;
    }

    PaintTrail trail;
};

TEST_F(PaintTrailTest, aPanelThatWasOnlyMovedHasNone)
{
    trail.leavePlace(before, start);
    EXPECT_TRUE(trail.region(place, newPaint).isEmpty());
}

TEST_F(PaintTrailTest, aPanelThatWasOnlyPaintedHasNone)
{
    trail.leavePaint(oldPaint, start);
    EXPECT_TRUE(trail.region(place, newPaint).isEmpty());
}

TEST_F(PaintTrailTest, whateverWasPaintedMayBeWhereverThePanelWas)
{
    trail.leavePlace(before, start);
    trail.leavePaint(oldPaint, start);
    EXPECT_EQ(trail.region(place, newPaint), everyCombination());
}

TEST_F(PaintTrailTest, aPanelShowsNothingBesideThePlaceWhereItWas)
{
    const PixelRect smaller{100, 100, 50, 32};
    trail.leavePlace(smaller, start);
    trail.leavePaint(oldPaint, start);
    PixelRegion cut = everyCombination();
    cut -= PixelRegion(100, 132, 10, 3);
    EXPECT_EQ(trail.region(place, newPaint), cut);
}

TEST_F(PaintTrailTest, itIsLetGoOfWhenItsTimeIsOverAndItIsProven)
{
    constexpr auto lag = HeldPlaces::longestLag;
    trail.leavePlace(before, start);
    trail.leavePaint(oldPaint, start + 20ms);
    trail.release(start + lag + 20ms, start - 1ms);
    EXPECT_EQ(trail.region(place, newPaint), everyCombination()) << "nothing is proven";
    trail.release(start + lag - 1ms, start + 20ms);
    EXPECT_EQ(trail.region(place, newPaint), everyCombination()) << "a proof does not end its time";
    trail.release(start + lag, start);
    EXPECT_TRUE(trail.region(place, newPaint).isEmpty()) << "the place that it left is seen no more";
    const PixelRect between{105, 110, 50, 50};
    trail.leavePlace(between, start + lag);
    PixelRegion left = at(between, oldPaint);
    left |= at(between, newPaint);
    left |= at(place, oldPaint);
    left |= at(place, newPaint);
    EXPECT_EQ(trail.region(place, newPaint), left) << "what it showed may be seen for longer";
    trail.release(start + lag + 20ms, start + 20ms);
    EXPECT_TRUE(trail.region(place, newPaint).isEmpty());
}

TEST_F(PaintTrailTest, itEndsWithThePanel)
{
    trail.leavePlace(before, start);
    trail.leavePaint(oldPaint, start);
    trail.clear();
    EXPECT_TRUE(trail.region(place, newPaint).isEmpty());
}

TEST_F(PaintTrailTest, onePanelThatIsResizedOnceIsNotStretched)
{
    trail.leaveSize(before, start);
    EXPECT_TRUE(trail.region(larger, newPaint).isEmpty());
}

TEST_F(PaintTrailTest, aPanelThatIsResizedAgainBeforeTheFirstTimeIsProvenMayBeOfAnySizeAtEveryPlace)
{
    trail.leaveSize(before, start);
    trail.leaveSize(larger, start + 10ms);
    PixelRegion whole(larger);
    for (const PixelRect& each : {before, place})
        whole.add(each.x, each.y, larger.width, larger.height);
    EXPECT_EQ(trail.region(place, newPaint), whole);
    trail.release(start + 20ms, start + 9ms);
    EXPECT_EQ(trail.region(place, newPaint), whole) << "the last size is not proven";
    trail.release(start + 20ms, start + 10ms);
    EXPECT_TRUE(trail.region(place, newPaint).isEmpty()) << "a proof is all that it takes";
}

TEST_F(PaintTrailTest, aPanelThatIsResizedAgainOnceTheFirstTimeIsProvenIsNotStretched)
{
    trail.leaveSize(before, start);
    trail.release(start + 10ms, start);
    trail.leaveSize(larger, start + 20ms);
    EXPECT_TRUE(trail.region(place, newPaint).isEmpty());
}

} // namespace
} // namespace nimbrale::x11
