#include "geometry/region_snapper.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace nimbrale {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

const RegionSnapper snapper{.area = {0, 25, 1512, 957}};

TEST(RegionSnapperTest, IsMadeForTheSnapAreaOfADisplay)
{
    const DisplayGeometry geometry{{1512, 982}, {0, 0, 1512, 982}, 25};
    EXPECT_EQ(RegionSnapper::of(geometry), snapper);
    EXPECT_EQ(snapper.minimumSize, (Size{50, 50}));
}

TEST(RegionSnapperTest, MovingToSevenPointsFromTheLeftEdgeSnapsToIt)
{
    const auto [region, guides] = snapper.snap({7, 60, 400, 300}, DragZone::move);
    EXPECT_EQ(region, (Rect{0, 60, 400, 300}));
    EXPECT_THAT(guides, ElementsAre(Guide::vertical(0)));
}

TEST(RegionSnapperTest, OfEqualDistancesTheLeftEdgeWins)
{
    // The left edge is 3 points right of ¼ (378), the right edge 3 points left of ½ (756).
    const auto [region, guides] = snapper.snap({381, 60, 372, 300}, DragZone::move);
    EXPECT_EQ(region.minX(), 378);
    EXPECT_THAT(guides, ElementsAre(Guide::vertical(378)));
}

TEST(RegionSnapperTest, NearestProbeWinsOverEarlierOnes)
{
    // The left edge is 6 points right of ¼, the right edge 2 points left of ½.
    const auto [region, guides] = snapper.snap({384, 60, 370, 300}, DragZone::move);
    EXPECT_EQ(region.maxX(), 756);
    EXPECT_THAT(guides, ElementsAre(Guide::vertical(756)));
}

TEST(RegionSnapperTest, TenPointsFromTheCentreSnapAndAHundredthMoreDoesNot)
{
    // 420 points wide: neither edge comes near a line while the middle is near ½.
    const auto near = snapper.snap({756 - 210 + 10.0, 60, 420, 300}, DragZone::move);
    EXPECT_EQ(near.region.midX(), 756);
    EXPECT_THAT(near.guides, ElementsAre(Guide::vertical(756)));
    const Rect tooFar{756 - 210 + 10.01, 60, 420, 300};
    const auto [region, guides] = snapper.snap(tooFar, DragZone::move);
    EXPECT_EQ(region, tooFar);
    EXPECT_THAT(guides, IsEmpty());
}

TEST(RegionSnapperTest, TheMiddleSnapsVerticallyToo)
{
    // The area's middle is at 503.5, halves away from zero.
    const auto [region, guides] = snapper.snap({150, 400, 100, 200}, DragZone::move);
    EXPECT_EQ(region, (Rect{150, 404, 100, 200}));
    EXPECT_THAT(guides, ElementsAre(Guide::horizontal(504)));
}

TEST(RegionSnapperTest, MovingNearTheMenuBarSnapsAgainstItNotToTheDisplaysEdge)
{
    const auto [region, guides] = snapper.snap({150, 30, 100, 137}, DragZone::move);
    EXPECT_EQ(region, (Rect{150, 25, 100, 137}));
    EXPECT_THAT(guides, ElementsAre(Guide::horizontal(25)));
}

TEST(RegionSnapperTest, BothAxesSnapAndTheVerticalGuideComesFirst)
{
    const auto [region, guides] = snapper.snap({4, 21, 300, 137}, DragZone::move);
    EXPECT_EQ(region, (Rect{0, 25, 300, 137}));
    EXPECT_THAT(guides, ElementsAre(Guide::vertical(0), Guide::horizontal(25)));
}

TEST(RegionSnapperTest, MovedRegionKeepsItsFractionsWhereNothingSnaps)
{
    const Rect between{190.25, 60.5, 100.5, 100};
    EXPECT_EQ(snapper.snap(between, DragZone::move).region, between);
}

TEST(RegionSnapperTest, MoveComparesWithRoundedLines)
{
    // ¼ of the height is line 25 + 239.25 = 264.25, which counts as 264.
    const auto [region, guides] = snapper.snap({150, 254, 100, 137}, DragZone::move);
    EXPECT_EQ(region.minY(), 264);
    EXPECT_THAT(guides, ElementsAre(Guide::horizontal(264)));
}

TEST(RegionSnapperTest, ResizeOffersFractionsFromTheRegionsOwnEdgeToo)
{
    const auto own = snapper.snap({100, 60, 750, 133}, DragZone::resize);
    EXPECT_EQ(own.region, (Rect{100, 60, 756, 133}));
    EXPECT_THAT(own.guides, ElementsAre(Guide::vertical(856)));
    const auto line = snapper.snap({100, 60, 650, 133}, DragZone::resize);
    EXPECT_EQ(line.region, (Rect{100, 60, 656, 133}));
    EXPECT_THAT(line.guides, ElementsAre(Guide::vertical(756)));
}

TEST(RegionSnapperTest, ResizeNeverSnapsBelowTheMinimumSize)
{
    // The line at 378 would leave 48 points; it is dropped although it is the nearest.
    const auto [region, guides] = snapper.snap({330, 60, 52, 133}, DragZone::resize);
    EXPECT_EQ(region, (Rect{330, 60, 52, 133}));
    EXPECT_THAT(guides, IsEmpty());
    const auto kept = snapper.snap({328, 60, 52, 133}, DragZone::resize);
    EXPECT_EQ(kept.region.maxX(), 378);
}

TEST(RegionSnapperTest, EachSideHasAMinimumOfItsOwn)
{
    // The lines at 378 and 264.25 are 58 and 204.25 away from the region's near edges.
    const Rect region{320, 60, 60, 200};
    const RegionSnapper wide{.area = snapper.area, .minimumSize = {59, 50}};
    EXPECT_THAT(wide.snap(region, DragZone::resize).guides, ElementsAre(Guide::horizontal(264)));
    const RegionSnapper high{.area = snapper.area, .minimumSize = {50, 205}};
    EXPECT_THAT(high.snap(region, DragZone::resize).guides, ElementsAre(Guide::vertical(378)));
}

TEST(RegionSnapperTest, WinningResizeCandidateIsRoundedBeforeTheWidthIsComputed)
{
    const RegionSnapper odd{.area = {0, 0, 1511.6, 900}}; // ¼ is 377.9.
    const auto [region, guides] = odd.snap({100, 60, 275, 133}, DragZone::resize);
    EXPECT_EQ(region, (Rect{100, 60, 278, 133}));
    EXPECT_THAT(guides, ElementsAre(Guide::vertical(378)));
}

TEST(RegionSnapperTest, ResizeComparesWithUnroundedCandidates)
{
    const RegionSnapper odd{.area = {0, 0, 1511.6, 900}};
    // 377.9 is 10.1 away from 388 and stays out of reach, although 378 would be within it.
    const auto [region, guides] = odd.snap({100, 60, 288, 133}, DragZone::resize);
    EXPECT_EQ(region.maxX(), 388);
    EXPECT_THAT(guides, IsEmpty());
}

TEST(RegionSnapperTest, OfEqualDistancesAResizeTakesTheLineAndNotTheRegionsOwnFraction)
{
    // The right edge at 384 is 6 points from the line ¼ (378) and from a quarter of the width beyond 12 (390).
    const auto [region, guides] = snapper.snap({12, 60, 372, 133}, DragZone::resize);
    EXPECT_EQ(region, (Rect{12, 60, 366, 133}));
    EXPECT_THAT(guides, ElementsAre(Guide::vertical(378)));
}

TEST(RegionSnapperTest, ResizeSnapsFromExactlyTenPoints)
{
    const auto [region, guides] = snapper.snap({100, 60, 288, 133}, DragZone::resize);
    EXPECT_EQ(region, (Rect{100, 60, 278, 133})) << "from 388 to 378";
    EXPECT_THAT(guides, ElementsAre(Guide::vertical(378)));
}

TEST(RegionSnapperTest, ResizeResultIsIntegralEvenWithoutSnap)
{
    const auto [region, guides] = snapper.snap({100.4, 60.6, 120.2, 133.1}, DragZone::resize);
    EXPECT_EQ(region, (Rect{100, 60, 121, 134}));
    EXPECT_THAT(guides, IsEmpty());
}

TEST(RegionSnapperTest, ResizeSnapsTheBottomEdgeToTheDisplaysBottom)
{
    const auto [region, guides] = snapper.snap({100, 700, 120, 275}, DragZone::resize);
    EXPECT_EQ(region, (Rect{100, 700, 120, 282}));
    EXPECT_THAT(guides, ElementsAre(Guide::horizontal(982)));
}

TEST(RegionSnapperTest, LabelsNameTheFractions)
{
    EXPECT_EQ(snapper.label({0, 0, 756, 478}), "756 × 478 · ½ × ½");
    EXPECT_EQ(snapper.label({0, 0, 756, 300}), "756 × 300 · ½ width");
    EXPECT_EQ(snapper.label({0, 0, 300, 319}), "300 × 319 · ⅓ height");
    EXPECT_EQ(snapper.label({0, 0, 1512, 957}), "1512 × 957 · full × full");
    EXPECT_EQ(snapper.label({0, 0, 300, 200}), "300 × 200");
    EXPECT_EQ(snapper.label({0, 0, 378, 638}), "378 × 638 · ¼ × ⅔");
    EXPECT_EQ(snapper.label({0, 0, 1134, 200}), "1134 × 200 · ¾ width");
}

TEST(RegionSnapperTest, LabelToleranceIsExclusive)
{
    EXPECT_EQ(snapper.label({0, 0, 757, 200}), "757 × 200");
    EXPECT_EQ(snapper.label({0, 0, 756.9, 200}), "756 × 200 · ½ width");
}

TEST(RegionSnapperTest, LabelTruncates)
{
    EXPECT_EQ(snapper.label({0, 0, 300.9, 200.9}), "300 × 200");
}

TEST(RegionSnapperDeathTest, SizeThatIsNoNumberCannotBeLabelled)
{
    EXPECT_DEATH((void)snapper.label({0, 0, std::numeric_limits<double>::quiet_NaN(), 200}), "not finite");
    EXPECT_DEATH((void)snapper.label({0, 0, 200, std::numeric_limits<double>::infinity()}), "not finite");
    EXPECT_DEATH((void)snapper.label({0, 0, 1e30, 200}), "does not fit");
}

class RandomSnapperTest : public testing::Test {
protected:
    double between(double low, double high) { return std::uniform_real_distribution(low, high)(random); }
    RegionSnapper randomSnapper()
    {
        return {
            .area = {0, std::floor(between(0, 40)), std::floor(between(640, 4000)), std::floor(between(480, 2500))}};
    }
    Rect randomRegion()
    {
        return Rect{between(-100, 3900), between(-100, 2400), between(50, 4000), between(50, 2500)}.integral();
    }

    std::mt19937 random{7};
};

TEST_F(RandomSnapperTest, MoveKeepsTheSizeAndGoesAtMostTenPoints)
{
    for (int round = 0; round < 3000; ++round) {
        const RegionSnapper some = randomSnapper();
        const Rect region = randomRegion();
        const auto [snapped, guides] = some.snap(region, DragZone::move);
        EXPECT_EQ(snapped.size(), region.size());
        EXPECT_LE(std::abs(snapped.x - region.x), 10);
        EXPECT_LE(std::abs(snapped.y - region.y), 10);
        for (const Guide& guide : guides) {
            const bool isVertical = guide.direction == Guide::Direction::vertical;
            const std::vector<double> edges = isVertical ? std::vector{snapped.minX(), snapped.midX(), snapped.maxX()}
                                                         : std::vector{snapped.minY(), snapped.midY(), snapped.maxY()};
            EXPECT_THAT(edges, Contains(testing::DoubleNear(guide.position, 1e-9)));
        }
    }
}

TEST_F(RandomSnapperTest, SnappingASnappedMoveChangesNothing)
{
    for (int round = 0; round < 3000; ++round) {
        const RegionSnapper some = randomSnapper();
        const Rect once = some.snap(randomRegion(), DragZone::move).region;
        const Rect twice = some.snap(once, DragZone::move).region;
        EXPECT_NEAR(twice.x, once.x, 1e-9);
        EXPECT_NEAR(twice.y, once.y, 1e-9);
    }
}

TEST_F(RandomSnapperTest, ResizeKeepsTheCornerAndSettlesAfterOneStep)
{
    for (int round = 0; round < 3000; ++round) {
        const RegionSnapper some = randomSnapper();
        const Rect region = randomRegion();
        const auto [once, guides] = some.snap(region, DragZone::resize);
        EXPECT_EQ(once.origin(), region.origin());
        EXPECT_LE(std::abs(once.width - region.width), 10.5);
        EXPECT_LE(std::abs(once.height - region.height), 10.5);
        EXPECT_GE(once.width, 50);
        EXPECT_GE(once.height, 50);
        // A winner is rounded; from there the nearest candidate is the winner again, or another that rounds to within
        // half a point of it.
        const Rect twice = some.snap(once, DragZone::resize).region;
        EXPECT_LE(std::abs(twice.width - once.width), 1);
        EXPECT_LE(std::abs(twice.height - once.height), 1);
    }
}

} // namespace
} // namespace nimbrale
