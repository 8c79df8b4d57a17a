// What windows that nobody has painted yet show of panels.

#include "tests/unit/platform/x11/capture/masked_changes_fixture.h"

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;

/// A window whose memory the server filled while the screen showed a panel on it.
class UnpaintedChangesTest : public MaskedChangesTest {
protected:
    CapturedWindow& addUnpaintedWindow()
    {
        addPanel({200, 200, 50, 50});
        CapturedWindow& window = addWindow({190, 190, 120, 100});
        window.youngUntil = start + 500ms;
        changes.addWindow(window, WindowChange::filled, start);
        changes.updateMask(windows, {}, start, start);
        EXPECT_EQ(changes.mask().region(), panel) << "the window shows it where it is masked anyway";
        return window;
    }
    void moveTo(CapturedWindow& window, int x)
    {
        changes.addWindow(window, WindowChange::altered, start);
        window.x = x;
        changes.addWindow(window, WindowChange::altered, start);
    }
    [[nodiscard]] PixelRegion maskAt(ChangeCollector::Clock::time_point now)
    {
        changes.updateMask(windows, {}, now, now);
        return changes.mask().region();
    }
    /// The panel's place and another one of the same height.
    [[nodiscard]] static PixelRegion panelAnd(int x, int width)
    {
        PixelRegion both(panel);
        both.add(x, 200, width, 50);
        return both;
    }

    static inline const PixelRegion panel{200, 200, 50, 50};
};

TEST_F(UnpaintedChangesTest, whatAWindowTookOfAPanelIsMaskedWhereItGoes)
{
    CapturedWindow& window = addUnpaintedWindow();
    moveTo(window, 290);
    EXPECT_EQ(maskAt(start), panelAnd(300, 50));
    moveTo(window, 300);
    EXPECT_EQ(maskAt(start), panelAnd(300, 60)) << "it may still be shown where it was";
    EXPECT_EQ(maskAt(start + ChangeCollector::longestLag), panelAnd(310, 50));
}

TEST_F(UnpaintedChangesTest, itIsMaskedUntilTheScreenShowsTheWindowPainted)
{
    CapturedWindow& window = addUnpaintedWindow();
    moveTo(window, 290);
    EXPECT_EQ(maskAt(start + 499ms), panelAnd(300, 50));
    window.youngUntil.reset();
    changes.addWindow(window, WindowChange::settled, start + 500ms);
    EXPECT_EQ(maskAt(start + 500ms + ChangeCollector::longestLag - 1ms), panelAnd(300, 50));
    EXPECT_EQ(maskAt(start + 500ms + ChangeCollector::longestLag), panel);
}

TEST_F(UnpaintedChangesTest, aWindowThatVanishesMayFadeWithIt)
{
    CapturedWindow& window = addUnpaintedWindow();
    moveTo(window, 290);
    changes.addWindow(window, WindowChange::vanished, start);
    window.isMapped = false;
    EXPECT_EQ(maskAt(start), panelAnd(300, 50));
    EXPECT_EQ(maskAt(start + ChangeCollector::longestFade - 1ms), panelAnd(300, 50));
    EXPECT_EQ(maskAt(start + ChangeCollector::longestFade), panel);
    window.isMapped = true;
    EXPECT_EQ(maskAt(start + ChangeCollector::longestFade), panel) << "it has other memory then";
}

TEST_F(UnpaintedChangesTest, aWindowThatGrowsTakesMoreOfIt)
{
    CapturedWindow& window = addUnpaintedWindow();
    window.width = 20;
    moveTo(window, 230);
    EXPECT_EQ(maskAt(start), panel) << "the part of it that is left lies below the panel";
    window.width = 120;
    changes.addWindow(window, WindowChange::filled, start);
    moveTo(window, 330);
    EXPECT_EQ(maskAt(start + ChangeCollector::longestLag), panelAnd(330, 60)) << "both are in it";
}

TEST_F(UnpaintedChangesTest, itIsRememberedOfAWindowThatNobodyHasLookedAtYet)
{
    addPanel({200, 200, 50, 50});
    CapturedWindow& window = addWindow({190, 190, 120, 100});
    window.needsClassification = true;
    window.youngUntil = start + 500ms;
    changes.addWindow(window, WindowChange::filled, start);
    EXPECT_TRUE(changes.isEmpty());
    moveTo(window, 290);
    window.needsClassification = false;
    EXPECT_EQ(maskAt(start), panelAnd(300, 50));
}

TEST_F(UnpaintedChangesTest, itIsKnownInTheMomentInWhichACompositingManagerGoesOrComes)
{
    addPanel({200, 200, 50, 50});
    changes.setMasked(false);
    CapturedWindow& window = addWindow({190, 190, 120, 100});
    changes.addWindow(window, WindowChange::filled, start);
    EXPECT_EQ(changes.unpainted().placeOf(window), panel) << "its frame went with the manager";
    changes.updateMask(windows, {}, start, start);
    changes.setMasked(true);
    CapturedWindow& another = addWindow({210, 190, 120, 100});
    changes.addWindow(another, WindowChange::filled, start);
    EXPECT_EQ(changes.unpainted().placeOf(another), PixelRegion(210, 200, 40, 50));
}

TEST_F(UnpaintedChangesTest, aWindowTakesOfAPanelAlsoWhatHasComeSinceTheLastPicture)
{
    CapturedWindow& moved = addPanel({200, 200, 50, 50});
    changes.addWindow(moved, WindowChange::altered, start);
    moved.x = 300;
    changes.addWindow(moved, WindowChange::altered, start);
    CapturedWindow& window = addWindow({190, 190, 200, 100});
    changes.addWindow(window, WindowChange::filled, start);
    EXPECT_EQ(changes.unpainted().placeOf(window), panelAnd(300, 50));
}

TEST_F(UnpaintedChangesTest, whatAWindowTakesAlongAnotherTakesFromItWhereItHasComeSinceTheLastPicture)
{
    CapturedWindow& window = addUnpaintedWindow();
    moveTo(window, 290);
    CapturedWindow& another = addWindow({280, 190, 200, 100});
    changes.addWindow(another, WindowChange::filled, start);
    EXPECT_EQ(changes.unpainted().placeOf(another), PixelRegion(300, 200, 50, 50));
}

TEST_F(UnpaintedChangesTest, anOpaqueWindowAboveHidesItOnceThatIsShown)
{
    CapturedWindow& window = addUnpaintedWindow();
    moveTo(window, 290);
    addWindow({280, 180, 200, 200});
    EXPECT_EQ(maskAt(start), panelAnd(300, 50)) << "the screen may not show that window yet";
    EXPECT_EQ(maskAt(start + ChangeCollector::longestFade), panel);
}

TEST_F(UnpaintedChangesTest, awayFromPanelsAWindowIsAsFreshAsItIs)
{
    addPanel({200, 200, 50, 50});
    CapturedWindow& window = addWindow({300, 190, 120, 100});
    window.youngUntil = start + 500ms;
    changes.addWindow(window, WindowChange::filled, start);
    moveTo(window, 350);
    EXPECT_EQ(maskAt(start), panel);
}

} // namespace
} // namespace nimbrale::x11
