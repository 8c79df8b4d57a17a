// What has to be drawn anew of a stream whose picture is copied from the screen, but where it shows what is left out.

#include "tests/unit/platform/x11/capture/change_collector_fixture.h"

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;

constexpr ChangeCollector::Clock::time_point start{};
constexpr auto running = Compositing::running;

class MaskedChangesTest : public ChangeCollectorTest {
protected:
    MaskedChangesTest()
    {
        changes.setMasked(true);
        (void)changes.take();
    }

    /// One that is left out, and tells that all of it is painted.
    CapturedWindow& addPanel(const PixelRect& area)
    {
        CapturedWindow& panel = addWindow(area);
        panel.painted = PixelRegion(0, 0, area.width, area.height);
        excluded.insert(panel.id);
        changes.updateMask(windows, {}, start, start);
        return panel;
    }
};

TEST_F(MaskedChangesTest, whatIsDrawnOnTheScreenIsDrawnButWhereItIsMasked)
{
    addPanel({200, 200, 50, 50});
    changes.addScreenDamage(PixelRegion(190, 200, 70, 10));
    PixelRegion beside(190, 200, 10, 10);
    beside.add(250, 200, 10, 10);
    EXPECT_EQ(changes.take(), beside);
}

TEST_F(MaskedChangesTest, onlyDamageOutsideOfTheMaskIsExpected)
{
    addPanel({200, 200, 50, 50});
    changes.expectScreenDamage(PixelRegion(200, 200, 50, 50));
    EXPECT_EQ(changes.expectation(), ChangeExpectation::none);
    changes.expectScreenDamage(PixelRegion(199, 200, 50, 50));
    EXPECT_EQ(changes.expectation(), ChangeExpectation::certain);
}

TEST_F(MaskedChangesTest, windowsCountBelowTheMaskAlone)
{
    const CapturedWindow& window = addWindow({110, 110, 300, 300});
    EXPECT_FALSE(changes.isVisible(windows, window, running));
    changes.addDamage(windows, window, PixelRegion(110, 110, 300, 300), running);
    changes.addWindow(window, WindowChange::altered, start);
    EXPECT_TRUE(changes.isEmpty());

    addPanel({200, 200, 50, 50});
    EXPECT_TRUE(changes.isVisible(windows, window, running));
    changes.addDamage(windows, window, PixelRegion(240, 240, 100, 100), running);
    EXPECT_EQ(changes.take(), PixelRegion(240, 240, 10, 10));
    EXPECT_EQ(changes.mask().divide(PixelRegion(source), {}).composed, PixelRegion(200, 200, 50, 50))
        << "none of it was seen before";
    changes.addWindow(window, WindowChange::altered, start);
    EXPECT_EQ(changes.take(), PixelRegion(200, 200, 50, 50));
}

TEST_F(MaskedChangesTest, aPlaceThatAPanelLeftIsDrawnWhenItIsHeldNoLonger)
{
    CapturedWindow& panel = addPanel({200, 200, 50, 50});
    changes.addWindow(panel, WindowChange::altered, start);
    panel.x = 300;
    changes.updateMask(windows, {}, start, start);
    PixelRegion both(200, 200, 50, 50);
    both.add(300, 200, 50, 50);
    EXPECT_EQ(changes.mask().region(), both);
    EXPECT_TRUE(changes.isEmpty()) << "what was there stays";
    changes.updateMask(windows, {}, start + ChangeCollector::longestLag, start + ChangeCollector::longestLag);
    EXPECT_EQ(changes.mask().region(), PixelRegion(300, 200, 50, 50));
    EXPECT_EQ(changes.take(), PixelRegion(200, 200, 50, 50));
}

TEST_F(MaskedChangesTest, aPanelThatVanishesMayFade)
{
    CapturedWindow& panel = addPanel({200, 200, 50, 50});
    changes.addWindow(panel, WindowChange::vanished, start);
    panel.isMapped = false;
    changes.updateMask(windows, {}, start + ChangeCollector::longestFade - 1ms,
                       start + ChangeCollector::longestFade - 1ms);
    EXPECT_EQ(changes.mask().region(), PixelRegion(200, 200, 50, 50));
    changes.updateMask(windows, {}, start + ChangeCollector::longestFade, start + ChangeCollector::longestFade);
    EXPECT_TRUE(changes.mask().region().isEmpty());
}

TEST_F(MaskedChangesTest, aWindowThatNobodyKnowsIsMaskedUntilItIsKnown)
{
    CapturedWindow& window = addWindow({200, 200, 50, 50});
    window.needsClassification = true;
    changes.updateMask(windows, {}, start, start);
    EXPECT_EQ(changes.mask().region(), PixelRegion(136, 136, 178, 178)) << "with a shadow";
    window.needsClassification = false;
    changes.updateMask(windows, {}, start, start);
    EXPECT_TRUE(changes.mask().region().isEmpty()) << "at once: it belongs in the picture";
    EXPECT_EQ(changes.take(), PixelRegion(136, 136, 178, 178));
}

TEST_F(MaskedChangesTest, aWindowThatVanishedBeforeAnybodyKnewItMayFade)
{
    CapturedWindow& window = addWindow({200, 200, 50, 50});
    window.needsClassification = true;
    changes.addWindow(window, WindowChange::vanished, start);
    changes.updateMask({}, {}, start + ChangeCollector::longestFade, start - 1ms);
    EXPECT_EQ(changes.mask().region(), PixelRegion(136, 136, 178, 178)) << "nobody has proven that it is gone";
    changes.updateMask({}, {}, start + ChangeCollector::longestFade, start);
    EXPECT_TRUE(changes.mask().region().isEmpty());
}

TEST_F(MaskedChangesTest, whereAWindowWasBeforeAnybodyKnewItIsHeldIfItIsLeftOut)
{
    const PixelRegion before(200, 200, 50, 50);
    CapturedWindow& window = addWindow({400, 300, 50, 50});
    window.unknownPlaces.add(before, start, ChangeCollector::longestLag);
    window.needsClassification = true;
    changes.updateMask(windows, {}, start, start);
    PixelRegion missed(before);
    missed -= changes.mask().region();
    EXPECT_TRUE(missed.isEmpty());

    window.needsClassification = false;
    const auto maskOnceItIsKnown = [&] {
        changes.addWindow(window, WindowChange::altered, start);
        window.unknownPlaces = {};
        changes.updateMask(windows, {}, start, start);
        return changes.mask().region();
    };
    EXPECT_TRUE(maskOnceItIsKnown().isEmpty()) << "it belongs in the picture";
    window.unknownPlaces.add(before, start, ChangeCollector::longestLag);
    window.painted = PixelRegion(0, 0, 50, 50);
    excluded.insert(window.id);
    PixelRegion both(before);
    both.add(400, 300, 50, 50);
    EXPECT_EQ(maskOnceItIsKnown(), both);
}

TEST_F(MaskedChangesTest, aWindowThatIsFoundToBeLeftOutIsDrawnOver)
{
    CapturedWindow& window = addWindow({200, 200, 50, 50});
    excluded.insert(window.id);
    changes.addWindow(window, WindowChange::renamed, start);
    changes.updateMask(windows, {}, start, start);
    EXPECT_EQ(changes.take(), window.reach());
    EXPECT_EQ(changes.mask().divide(window.reach(), PixelRegion(source)).composed, window.reach());
}

TEST_F(MaskedChangesTest, whatIsFoundToBeAFrameIsNotLeftAsItWasTakenFromItsMemory)
{
    const CapturedWindow& window = addWindow({110, 110, 300, 300});
    addPanel({200, 200, 50, 50});
    (void)changes.mask().divide(PixelRegion(source), {});
    const PixelRegion below(200, 200, 50, 50);
    changes.addWindow(window, WindowChange::altered, start);
    EXPECT_EQ(changes.mask().divide(PixelRegion(source), {}).seenBefore, below);
    changes.addWindow(window, WindowChange::renamed, start);
    const ScreenMask::Parts parts = changes.mask().divide(PixelRegion(source), PixelRegion(source));
    EXPECT_EQ(parts.composed, below);
    EXPECT_TRUE(parts.seenBefore.isEmpty());
}

TEST_F(MaskedChangesTest, aWindowThatHasSettledIsDrawnBelowTheMaskAlone)
{
    const CapturedWindow& window = addWindow({110, 110, 300, 300});
    changes.addWindow(window, WindowChange::settled, start);
    EXPECT_TRUE(changes.isEmpty());
    CapturedWindow& panel = addPanel({200, 200, 50, 50});
    changes.addWindow(window, WindowChange::settled, start);
    EXPECT_EQ(changes.take(), PixelRegion(200, 200, 50, 50));
    changes.addWindow(panel, WindowChange::settled, start);
    EXPECT_FALSE(changes.nextRelease()) << "a panel that has settled has left no place";
    changes.setMasked(false);
    (void)changes.take();
    changes.addWindow(window, WindowChange::settled, start);
    EXPECT_TRUE(changes.isEmpty()) << "its damage has told of it";
}

TEST_F(MaskedChangesTest, anotherBackgroundIsDrawnBelowTheMaskToo)
{
    addPanel({200, 200, 50, 50});
    (void)changes.mask().divide(PixelRegion(source), {});
    changes.addBackground();
    EXPECT_EQ(changes.take(), PixelRegion(source));
    EXPECT_EQ(changes.mask().divide(PixelRegion(source), {}).composed, PixelRegion(200, 200, 50, 50));
}

TEST_F(MaskedChangesTest, aHiddenWindowMasksNothing)
{
    CapturedWindow& panel = addPanel({200, 200, 50, 50});
    panel.isHidden = true;
    changes.updateMask(windows, {}, start, start);
    EXPECT_TRUE(changes.mask().region().isEmpty());
}

TEST_F(MaskedChangesTest, noPictureIsDrawnWhileAWindowThatIsLeftOutMayBeOnItsWay)
{
    CapturedWindow& window = addWindow({200, 200, 50, 50});
    changes.addHiding(window, start);
    EXPECT_FALSE(changes.isFrozen()) << "one that is in the picture may be anywhere";
    excluded.insert(window.id);
    changes.addHiding(window, start);
    changes.updateMask(windows, {}, start + ChangeCollector::longestFade - 1ms, start);
    EXPECT_TRUE(changes.isFrozen());
    changes.updateMask(windows, {}, start + ChangeCollector::longestFade, start);
    EXPECT_FALSE(changes.isFrozen());
    changes.setMasked(false);
    changes.addHiding(window, start);
    EXPECT_FALSE(changes.isFrozen()) << "without a compositing manager nothing slides";
}

TEST_F(MaskedChangesTest, onlyWhatIsPaintedOfAPanelIsMasked)
{
    CapturedWindow& panel = addPanel({200, 200, 50, 50});
    panel.painted = PixelRegion(10, 0, 5, 100);
    changes.updateMask(windows, {}, start, start);
    EXPECT_EQ(changes.mask().region(), PixelRegion(210, 200, 5, 50));
}

TEST_F(MaskedChangesTest, anotherCompositingManagerBeginsAnew)
{
    addPanel({200, 200, 50, 50});
    changes.freeze(start, 500ms, 100ms);
    changes.setMasked(true);
    EXPECT_TRUE(changes.mask().region().isEmpty());
    EXPECT_FALSE(changes.isFrozen());
    EXPECT_EQ(changes.take(), PixelRegion(source));
}

TEST_F(MaskedChangesTest, aFrozenPictureIsDrawnWholeOnceTheScreenIsProvenToBePainted)
{
    changes.freeze(start + 10ms, 250ms, 100ms);
    EXPECT_TRUE(changes.isFrozen());
    EXPECT_EQ(changes.requiredProof(), start + 10ms);
    EXPECT_EQ(changes.nextRelease(), start + 260ms);
    changes.updateMask(windows, {}, start + 259ms, start + 10ms);
    EXPECT_TRUE(changes.isFrozen()) << "a proof does not end its time";
    changes.updateMask(windows, {}, start + 260ms, start + 9ms);
    EXPECT_TRUE(changes.isFrozen());
    changes.updateMask(windows, {}, start + 260ms, start + 10ms);
    EXPECT_FALSE(changes.isFrozen());
    EXPECT_EQ(changes.take(), PixelRegion(source));
    EXPECT_FALSE(changes.requiredProof());
}

TEST_F(MaskedChangesTest, aPictureIsNotFrozenForeverWithoutAProof)
{
    changes.freeze(start, 250ms, 100ms);
    changes.updateMask(windows, {}, start + 349ms, start - 1ms);
    EXPECT_TRUE(changes.isFrozen());
    changes.updateMask(windows, {}, start + 350ms, start - 1ms);
    EXPECT_FALSE(changes.isFrozen());
}

TEST_F(MaskedChangesTest, whatAWindowCoversOfOneThatIsLeftOutIsCopiedOnceTheScreenShowsTheCover)
{
    addPanel({200, 200, 50, 50});
    addWindow({220, 190, 100, 100});
    changes.updateMask(windows, {}, start, start);
    EXPECT_EQ(changes.mask().region(), PixelRegion(200, 200, 50, 50)) << "the screen may be late";
    (void)changes.take();
    constexpr auto later = start + ChangeCollector::longestFade;
    changes.updateMask(windows, {}, later, start - 1ms);
    EXPECT_EQ(changes.mask().region(), PixelRegion(200, 200, 50, 50)) << "nobody has proven that it is not";
    changes.updateMask(windows, {}, later, start);
    EXPECT_EQ(changes.mask().region(), PixelRegion(200, 200, 20, 50));
    EXPECT_EQ(changes.take(), PixelRegion(220, 200, 30, 50));
}

TEST_F(MaskedChangesTest, whatACoverLeavesIsMaskedAtOnce)
{
    addPanel({200, 200, 50, 50});
    CapturedWindow& cover = addWindow({190, 190, 100, 100});
    changes.updateMask(windows, {}, start, start);
    constexpr auto later = start + ChangeCollector::longestFade;
    changes.updateMask(windows, {}, later, later);
    EXPECT_TRUE(changes.mask().region().isEmpty());
    cover.x = 220;
    changes.updateMask(windows, {}, later, later);
    EXPECT_EQ(changes.mask().region(), PixelRegion(200, 200, 20, 50));
    cover.x = 190;
    changes.updateMask(windows, {}, later, later);
    EXPECT_EQ(changes.mask().region(), PixelRegion(200, 200, 20, 50)) << "held again";
    cover.isMapped = false;
    changes.updateMask(windows, {}, later, later);
    EXPECT_EQ(changes.mask().region(), PixelRegion(200, 200, 50, 50));
}

TEST_F(MaskedChangesTest, onlyWhatSurelyHidesWhatIsBelowCoversIt)
{
    constexpr auto later = start + ChangeCollector::longestFade;
    addWindow({190, 190, 100, 100});
    addPanel({200, 200, 50, 50});
    changes.updateMask(windows, {}, later, later);
    EXPECT_EQ(changes.mask().region(), PixelRegion(200, 200, 50, 50)) << "a window below";

    CapturedWindow& cover = addWindow({190, 190, 100, 100});
    const auto coversNothing = [&](const char* why) {
        changes.updateMask(windows, {}, start, start);
        changes.updateMask(windows, {}, later, later);
        EXPECT_EQ(changes.mask().region(), PixelRegion(200, 200, 50, 50)) << why;
    };
    cover.hasAlpha = true;
    coversNothing("a translucent window");
    cover.hasAlpha = false;
    cover.youngUntil = later;
    coversNothing("a window that may not have painted yet");
    cover.youngUntil.reset();
    cover.isHidden = true;
    coversNothing("a minimized window");
    cover.isHidden = false;
    excluded.insert(cover.id);
    cover.painted = PixelRegion();
    coversNothing("a window that is left out itself");
    excluded.erase(cover.id);
    cover.painted.reset();
    cover.managed.left = 100;
    coversNothing("a frame, whose corners are round");
}

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

TEST_F(MaskedChangesTest, aPanelThatWasMovedAndPaintedAnewIsMaskedWhereverItsPixelsMayBe)
{
    CapturedWindow& panel = addPanel({200, 200, 50, 50});
    panel.painted = PixelRegion(0, 40, 50, 10);
    panel.trail.leavePaint(PixelRegion(0, 0, 50, 10), start);
    panel.trail.leavePlace(panel.bounds(), start);
    panel.x = 260;
    changes.updateMask(windows, {}, start, start);
    PixelRegion every(200, 200, 50, 10);
    every.add(200, 240, 50, 10);
    every.add(260, 200, 50, 10);
    every.add(260, 240, 50, 10);
    EXPECT_EQ(changes.mask().region(), every);

    changes.addWindow(panel, WindowChange::vanished, start);
    changes.updateMask({}, {}, start + ChangeCollector::longestFade - 1ms, start);
    EXPECT_EQ(changes.mask().region(), every) << "its trail is held as long as itself when it has vanished";
    changes.updateMask({}, {}, start + ChangeCollector::longestFade, start);
    EXPECT_TRUE(changes.mask().region().isEmpty());
}

} // namespace
} // namespace nimbrale::x11
