// The pixel that proves what the screen shows is ours as well: wherever it is, no picture shows it.

#include "tests/unit/platform/x11/capture/change_collector_fixture.h"

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;

constexpr ChangeCollector::Clock::time_point start{};

class ProofMarksTest : public ChangeCollectorTest {
protected:
    ProofMarksTest()
    {
        changes.setMasked(true);
        panel = &addWindow({200, 200, 50, 50});
        panel->painted = PixelRegion(0, 0, 50, 50);
        excluded.insert(panel->id);
    }

    [[nodiscard]] PixelRegion maskWith(const PixelRegion& marks, ChangeCollector::Clock::time_point now,
                                       ChangeCollector::Clock::time_point proven = start)
    {
        changes.updateMask(windows, marks, now, proven);
        return changes.mask().region();
    }
    [[nodiscard]] static PixelRegion together(PixelRegion first, const PixelRegion& second)
    {
        first |= second;
        return first;
    }

    CapturedWindow* panel = nullptr;
    const PixelRegion ofPanel{200, 200, 50, 50};
    const PixelRegion inside{220, 220, 1, 1};
    const PixelRegion outside{300, 220, 1, 1};
};

TEST_F(ProofMarksTest, oneThatItsPanelHasMovedAwayFromIsMasked)
{
    EXPECT_EQ(maskWith(outside, start), together(ofPanel, outside));
}

TEST_F(ProofMarksTest, oneThatWasBareIsMaskedUntilItIsProvenToBeGone)
{
    (void)maskWith(outside, start);
    const auto gone = start + 100ms;
    EXPECT_EQ(maskWith({}, gone), together(ofPanel, outside));
    EXPECT_EQ(changes.requiredProof(gone), gone);
    const auto later = gone + ChangeCollector::longestLag;
    EXPECT_EQ(maskWith({}, later, gone - 1ms), together(ofPanel, outside));
    EXPECT_EQ(maskWith({}, later, gone), ofPanel);
}

TEST_F(ProofMarksTest, oneWithinItsPanelNeedsNoProofOfItsOwn)
{
    EXPECT_EQ(maskWith(inside, start), ofPanel);
    EXPECT_EQ(maskWith({}, start + 1ms), ofPanel);
    EXPECT_EQ(changes.requiredProof(start + 1ms), std::nullopt) << "or there would be proof after proof for ever";
}

TEST_F(ProofMarksTest, oneThatIsBareWhereThePanelCameSinceNeedsNoneEither)
{
    (void)maskWith(outside, start);
    panel->width = 150;
    panel->painted = PixelRegion(0, 0, 150, 50);
    EXPECT_EQ(maskWith({}, start + 1ms), PixelRegion(200, 200, 150, 50));
    EXPECT_EQ(changes.requiredProof(start + 1ms), std::nullopt);
}

TEST_F(ProofMarksTest, withoutAMaskThereIsNothingToMark)
{
    changes.setMasked(false);
    EXPECT_TRUE(maskWith(outside, start).isEmpty());
}

} // namespace
} // namespace nimbrale::x11
