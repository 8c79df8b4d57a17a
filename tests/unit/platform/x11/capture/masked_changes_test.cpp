// What has to be drawn anew of a stream whose picture is copied from the screen, but where it shows what is left out.

#include "tests/unit/platform/x11/capture/masked_changes_fixture.h"

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;

constexpr auto running = Compositing::running;

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
    changes.clearExpectation();
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
    changes.addScreenDamage(PixelRegion(110, 110, 300, 300));
    (void)changes.take();

    addPanel({200, 200, 50, 50});
    EXPECT_TRUE(changes.isVisible(windows, window, running));
    changes.addDamage(windows, window, PixelRegion(240, 240, 100, 100), running);
    EXPECT_EQ(changes.take(), PixelRegion(240, 240, 10, 10));
    EXPECT_EQ(changes.mask().divide(PixelRegion(source), {}).composed, PixelRegion(200, 200, 50, 50))
        << "none of it was seen before";
    changes.addWindow(window, WindowChange::altered, start);
    EXPECT_EQ(changes.take(), PixelRegion(200, 200, 50, 50));
}

// The damage of a window that is on no masked place is left with the server, which then tells of no more.
TEST_F(MaskedChangesTest, whatWindowsHaveDrawnIsAskedForWhenMoreIsMasked)
{
    addWindow({110, 110, 300, 300});
    CapturedWindow& panel = addPanel({200, 200, 50, 50});
    EXPECT_EQ(changes.expectation(), ChangeExpectation::possible);
    changes.clearExpectation();
    changes.updateMask(windows, {}, start, start);
    EXPECT_EQ(changes.expectation(), ChangeExpectation::none) << "it is where it was";
    panel.x = 201;
    changes.updateMask(windows, {}, start, start);
    (void)changes.take();
    EXPECT_EQ(changes.expectation(), ChangeExpectation::possible);
    changes.clearExpectation();
    panel.isMapped = false;
    changes.updateMask(windows, {}, start, start);
    (void)changes.take();
    EXPECT_EQ(changes.expectation(), ChangeExpectation::none) << "it has gone";
}

// The screen shows only later what a window has drawn, and below the mask it is not looked at.
TEST_F(MaskedChangesTest, whatAWindowDrewJustBeforeItWasMaskedIsTakenFromItsPixels)
{
    CapturedWindow& window = addWindow({110, 110, 300, 300});
    window.picture = 1;
    addPanel({120, 120, 20, 20});
    (void)changes.mask().divide(PixelRegion(source), {});
    changes.addDamage(windows, window, PixelRegion(190, 190, 50, 50), running);
    EXPECT_TRUE(changes.isEmpty()) << "the screen will tell";
    changes.addScreenDamage(PixelRegion(190, 190, 50, 20));
    (void)changes.take();
    changes.mask().noteSeen(ScreenMask::everything());
    addPanel({200, 200, 50, 50});
    const PixelRegion late(200, 210, 40, 30);
    EXPECT_EQ(changes.take(), late);
    EXPECT_EQ(changes.mask().divide(PixelRegion(source), {}).composed, late);
    addPanel({180, 180, 100, 100});
    EXPECT_EQ(changes.take(), PixelRegion(190, 210, 10, 30)) << "of the rest the screen has told";
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
    changes.updateMask(windows, {}, start, start);
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
    constexpr auto later = start + ChangeCollector::longestFade;
    changes.updateMask({}, {}, later, start - 1ms);
    EXPECT_EQ(changes.mask().region(), PixelRegion(136, 136, 178, 178)) << "nobody has proven that it is gone";
    changes.updateMask({}, {}, later, start);
    EXPECT_EQ(changes.mask().region(), PixelRegion(136, 136, 178, 178)) << "it may fade from now on";
    constexpr auto faded = later + ChangeCollector::longestFade;
    changes.updateMask({}, {}, faded, faded - 1ms);
    EXPECT_EQ(changes.mask().region(), PixelRegion(136, 136, 178, 178)) << "nobody has proven that it has faded";
    changes.updateMask({}, {}, faded, faded);
    EXPECT_TRUE(changes.mask().region().isEmpty());
}

TEST_F(MaskedChangesTest, whereAWindowWasBeforeAnybodyKnewItIsHeldIfItIsLeftOut)
{
    const PixelRegion before(200, 200, 50, 50);
    CapturedWindow& window = addWindow({400, 300, 50, 50});
    window.unknownPlaces.add(before, start, {});
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
    window.unknownPlaces.add(before, start, {});
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
    constexpr auto late = start + 2 * ChangeCollector::longestFade;
    changes.updateMask(windows, {}, late - 1ms, start - 1ms);
    EXPECT_TRUE(changes.isFrozen()) << "a busy compositing manager has not begun";
    changes.updateMask(windows, {}, late, start);
    changes.updateMask(windows, {}, late + ChangeCollector::longestFade - 1ms, late);
    EXPECT_TRUE(changes.isFrozen());
    changes.updateMask(windows, {}, late + ChangeCollector::longestFade, late);
    EXPECT_TRUE(changes.isFrozen()) << "nor shown the end";
    changes.updateMask(windows, {}, late + ChangeCollector::longestFade, late + ChangeCollector::longestFade);
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
    changes.freeze(start, {500ms, 100ms});
    changes.setMasked(true);
    EXPECT_TRUE(changes.mask().region().isEmpty());
    EXPECT_FALSE(changes.isFrozen());
    EXPECT_EQ(changes.take(), PixelRegion(source));
}

TEST_F(MaskedChangesTest, aFrozenPictureIsDrawnWholeOnceTheScreenIsProvenToBePainted)
{
    changes.freeze(start + 10ms, {250ms, 100ms});
    EXPECT_TRUE(changes.isFrozen());
    EXPECT_EQ(changes.requiredProof(start + 10ms), start + 10ms);
    EXPECT_EQ(changes.nextRelease(), start + 260ms);
    changes.updateMask(windows, {}, start + 259ms, start + 10ms);
    EXPECT_TRUE(changes.isFrozen()) << "a proof does not end its time";
    changes.updateMask(windows, {}, start + 260ms, start + 9ms);
    EXPECT_TRUE(changes.isFrozen());
    changes.updateMask(windows, {}, start + 260ms, start + 10ms);
    EXPECT_FALSE(changes.isFrozen());
    EXPECT_EQ(changes.take(), PixelRegion(source));
    EXPECT_FALSE(changes.requiredProof(start + 260ms));
}

TEST_F(MaskedChangesTest, aPictureIsNotFrozenForeverWithoutAProof)
{
    changes.freeze(start, {250ms, 100ms});
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
    EXPECT_EQ(changes.mask().region(), PixelRegion(200, 200, 50, 50)) << "the cover may fade in";
    constexpr auto faded = later + ChangeCollector::longestFade;
    changes.updateMask(windows, {}, faded, faded);
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
    changes.updateMask({}, {}, start, start);
    constexpr auto faded = start + ChangeCollector::longestFade;
    changes.updateMask({}, {}, faded - 1ms, faded - 1ms);
    EXPECT_EQ(changes.mask().region(), every) << "its trail is held as long as itself when it has vanished";
    changes.updateMask({}, {}, faded, faded);
    EXPECT_TRUE(changes.mask().region().isEmpty());
}

// Both are heard of in one go, before the mask is found out anew.
TEST_F(MaskedChangesTest, aWindowTakesWhatAPanelMayShowThatWasMovedAndPaintedAnew)
{
    CapturedWindow& panel = addPanel({200, 200, 50, 50});
    const PixelRegion newPaint(0, 40, 50, 10);
    panel.painted = PixelRegion(0, 0, 50, 10);
    changes.updateMask(windows, {}, start, start);
    panel.trail.leavePlace(panel.bounds(), start);
    panel.x = 300;
    panel.trail.leavePaint(*panel.painted, start);
    panel.painted = newPaint;
    changes.addWindow(panel, WindowChange::altered, start);
    const CapturedWindow& window = addWindow({190, 190, 200, 100});
    changes.addWindow(window, WindowChange::filled, start);
    PixelRegion everyCombination(200, 200, 50, 10);
    everyCombination.add(200, 240, 50, 10);
    everyCombination.add(300, 200, 50, 10);
    everyCombination.add(300, 240, 50, 10);
    everyCombination -= changes.unpainted().placeOf(window);
    EXPECT_TRUE(everyCombination.isEmpty());
}

} // namespace
} // namespace nimbrale::x11
