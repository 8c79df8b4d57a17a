// What of a stream's source has to be drawn anew.

#include "tests/unit/platform/x11/capture/change_collector_fixture.h"

namespace nimbrale::x11 {
namespace {

bool isSame(const PixelRegion& left, const PixelRegion& right)
{
    PixelRegion onlyLeft(left);
    onlyLeft -= right;
    PixelRegion onlyRight(right);
    onlyRight -= left;
    return onlyLeft.isEmpty() && onlyRight.isEmpty();
}

TEST_F(ChangeCollectorTest, anotherSourceIsDrawnWhole)
{
    EXPECT_TRUE(changes.isEmpty());
    changes.setSource({0, 0, 50, 60}, PointerVisibility::shown);
    EXPECT_TRUE(isSame(changes.take(), PixelRegion(0, 0, 50, 60)));
    EXPECT_TRUE(changes.isEmpty());
}

TEST_F(ChangeCollectorTest, theSameSourceAgainChangesNothing)
{
    changes.setSource(source, PointerVisibility::shown);
    EXPECT_TRUE(changes.isEmpty());
}

TEST_F(ChangeCollectorTest, anotherChoiceAboutThePointerIsDrawnWhole)
{
    changes.setSource(source, PointerVisibility::hidden);
    EXPECT_FALSE(changes.showsPointer());
    EXPECT_TRUE(isSame(changes.take(), PixelRegion(source)));
}

TEST_F(ChangeCollectorTest, onlyWhatLiesInTheSourceCounts)
{
    changes.add(PixelRegion(50, 50, 100, 100));
    EXPECT_TRUE(isSame(changes.take(), PixelRegion(100, 100, 50, 50)));
    changes.add(PixelRegion(0, 0, 100, 100));
    EXPECT_TRUE(changes.isEmpty());
}

TEST_F(ChangeCollectorTest, changesAddUpUntilTheyAreTaken)
{
    changes.add(PixelRegion(110, 110, 10, 10));
    changes.add(PixelRegion(130, 110, 10, 10));
    PixelRegion both(110, 110, 10, 10);
    both.add(130, 110, 10, 10);
    EXPECT_TRUE(isSame(changes.take(), both));
    EXPECT_TRUE(changes.take().isEmpty());
}

TEST_F(ChangeCollectorTest, manyRectanglesBecomeTheirBoundingBox)
{
    for (int index = 0; index < ChangeCollector::maximumRectangles; ++index)
        changes.add(PixelRegion(110 + 10 * index, 110, 5, 5));
    EXPECT_EQ(changes.take().count(), ChangeCollector::maximumRectangles);
    for (int index = 0; index <= ChangeCollector::maximumRectangles; ++index)
        changes.add(PixelRegion(110 + 10 * index, 110, 5, 5));
    const PixelRegion taken = changes.take();
    EXPECT_EQ(taken.count(), 1);
    EXPECT_EQ(taken.bounds(), (PixelRect{110, 110, 10 * ChangeCollector::maximumRectangles + 5, 5}));
    EXPECT_TRUE(changes.isEmpty());
}

TEST_F(ChangeCollectorTest, aWindowThatComesOrGoesIsDrawnWhereItIs)
{
    const CapturedWindow& window = addWindow({80, 80, 50, 50});
    changes.addWindow(window, WindowChange::altered, {});
    EXPECT_TRUE(isSame(changes.take(), PixelRegion(100, 100, 30, 30)));
    excluded.insert(window.id);
    changes.addWindow(window, WindowChange::altered, {});
    EXPECT_TRUE(changes.isEmpty());
}

TEST_F(ChangeCollectorTest, damageIsCutToTheWindowAndTheSource)
{
    const CapturedWindow& window = addWindow({80, 80, 50, 50});
    damage(window, {70, 70, 200, 200});
    EXPECT_TRUE(isSame(changes.take(), PixelRegion(100, 100, 30, 30)));
}

TEST_F(ChangeCollectorTest, damageOutsideTheShapeIsNotDrawn)
{
    CapturedWindow& window = addWindow({110, 110, 50, 50});
    window.isShaped = true;
    window.shape = PixelRegion(0, 0, 10, 10);
    damage(window, {110, 110, 50, 50});
    EXPECT_TRUE(isSame(changes.take(), PixelRegion(110, 110, 10, 10)));
}

TEST_F(ChangeCollectorTest, aFinelyShapedWindowIsReckonedByItsBoundsAndHidesNothing)
{
    const CapturedWindow& below = addWindow({100, 100, 400, 300});
    CapturedWindow& fine = addWindow({150, 150, 200, 120});
    std::vector<PixelRect> grid;
    for (int y = 0; y < 120; y += 2)
        for (int x = 0; x < 200; x += 2)
            grid.push_back({x, y, 1, 1});
    fine.isShaped = true;
    fine.shape = PixelRegion(grid);
    ASSERT_TRUE(fine.isFinelyShaped());
    changes.addWindow(fine, WindowChange::altered, {});
    EXPECT_TRUE(isSame(changes.take(), PixelRegion(150, 150, 199, 119)));
    damage(below, {160, 160, 20, 10});
    EXPECT_TRUE(isSame(changes.take(), PixelRegion(160, 160, 20, 10)));
    EXPECT_TRUE(isVisible(fine));
    // Of what it takes of the root not a pixel is too much.
    PixelRegion bare(bareRootDamage({&fine}, PixelRegion(150, 150, 4, 2)));
    EXPECT_TRUE(
        isSame(bare, PixelRegion(std::vector<PixelRect>{{151, 150, 1, 1}, {153, 150, 1, 1}, {150, 151, 4, 1}})));
}

TEST_F(ChangeCollectorTest, whatOpaqueWindowsAboveHideIsLeftOut)
{
    const CapturedWindow& below = addWindow({110, 110, 100, 100});
    addWindow({110, 110, 100, 40});
    damage(below, {110, 110, 100, 100});
    EXPECT_TRUE(isSame(changes.take(), PixelRegion(110, 150, 100, 60)));
}

TEST_F(ChangeCollectorTest, windowsBelowHideNothing)
{
    addWindow({110, 110, 100, 100});
    const CapturedWindow& above = addWindow({110, 110, 100, 100});
    damage(above, {110, 110, 10, 10});
    EXPECT_TRUE(isSame(changes.take(), PixelRegion(110, 110, 10, 10)));
}

TEST_F(ChangeCollectorTest, severalWindowsHideTogether)
{
    const CapturedWindow& below = addWindow({110, 110, 100, 100});
    addWindow({110, 110, 50, 100});
    addWindow({160, 110, 50, 100});
    damage(below, {110, 110, 100, 100});
    EXPECT_TRUE(changes.isEmpty());
    EXPECT_FALSE(isVisible(below));
}

TEST_F(ChangeCollectorTest, onlyWhatIsShownHides)
{
    const CapturedWindow& below = addWindow({110, 110, 100, 100});
    CapturedWindow& above = addWindow({110, 110, 100, 100});
    const auto hides = [&] {
        damage(below, {110, 110, 10, 10});
        const bool isHidden = changes.isEmpty();
        (void)changes.take();
        EXPECT_EQ(isVisible(below), !isHidden);
        return isHidden;
    };
    EXPECT_TRUE(hides());
    above.isMapped = false;
    EXPECT_FALSE(hides());
    above.isMapped = true;
    above.picture = XCB_NONE;
    EXPECT_FALSE(hides());
    above.picture = 1;
    excluded.insert(above.id);
    EXPECT_FALSE(hides());
    excluded.clear();
    above.needsClassification = true;
    EXPECT_FALSE(hides());
    above.needsClassification = false;
    EXPECT_TRUE(hides());
}

TEST_F(ChangeCollectorTest, seeThroughWindowsHideNothingUnderACompositor)
{
    const CapturedWindow& below = addWindow({110, 110, 100, 100});
    CapturedWindow& above = addWindow({110, 110, 100, 100});
    EXPECT_FALSE(isVisible(below, Compositing::running));
    above.hasAlpha = true;
    EXPECT_TRUE(isVisible(below, Compositing::running));
    EXPECT_FALSE(isVisible(below, Compositing::absent)) << "the server shows it opaque";
    above.hasAlpha = false;
    above.opacity = 0x80000000;
    EXPECT_TRUE(isVisible(below, Compositing::running));
    EXPECT_FALSE(isVisible(below, Compositing::absent));
    damage(below, {110, 110, 10, 10}, Compositing::running);
    EXPECT_TRUE(isSame(changes.take(), PixelRegion(110, 110, 10, 10)));
}

TEST_F(ChangeCollectorTest, damageOfAWindowThatIsLeftOutIsNotDrawn)
{
    const CapturedWindow& window = addWindow({110, 110, 100, 100});
    excluded.insert(window.id);
    damage(window, {110, 110, 10, 10});
    EXPECT_TRUE(changes.isEmpty());
    EXPECT_FALSE(isVisible(window));
}

TEST_F(ChangeCollectorTest, aWindowOutsideTheSourceIsNotVisible)
{
    EXPECT_FALSE(isVisible(addWindow({0, 0, 100, 100})));
    EXPECT_TRUE(isVisible(addWindow({0, 0, 101, 101})));
}

TEST_F(ChangeCollectorTest, aWindowThatNobodyKnowsYetCountsAsVisible)
{
    CapturedWindow& window = addWindow({110, 110, 100, 100});
    window.needsClassification = true;
    EXPECT_TRUE(isVisible(window));
    excluded.insert(window.id);
    EXPECT_TRUE(isVisible(window));
}

TEST_F(ChangeCollectorTest, damageOfTheRootCountsWhereNoWindowCoversIt)
{
    CapturedWindow& window = addWindow({110, 110, 50, 50});
    CapturedWindow& invisible = addWindow({160, 110, 20, 50});
    invisible.isInputOnly = true;
    CapturedWindow& unmapped = addWindow({180, 110, 20, 50});
    unmapped.isMapped = false;
    EXPECT_TRUE(isSame(bareRootDamage(windows, PixelRegion(110, 110, 100, 50)), PixelRegion(160, 110, 50, 50)));
    EXPECT_TRUE(bareRootDamage(windows, PixelRegion(110, 110, 50, 50)).isEmpty());
    window.isShaped = true;
    window.shape = PixelRegion(0, 0, 25, 50);
    EXPECT_TRUE(isSame(bareRootDamage(windows, PixelRegion(110, 110, 50, 50)), PixelRegion(135, 110, 25, 50)));
}

TEST_F(ChangeCollectorTest, aDamagedRootMayBeNewUnderWindowsThatAreLeftOut)
{
    addWindow({110, 110, 50, 50});
    const CapturedWindow& own = addWindow({300, 110, 50, 50});
    CapturedWindow& unmapped = addWindow({400, 110, 50, 50});
    unmapped.isMapped = false;
    excluded = {own.id, unmapped.id};
    changes.addRootDamage(windows, PixelRegion(200, 200, 10, 10));
    PixelRegion expected(200, 200, 10, 10);
    expected.add(300, 110, 50, 50);
    EXPECT_TRUE(isSame(changes.take(), expected));
}

TEST_F(ChangeCollectorTest, framesOfTheScreenTakeNoNoticeOfWindows)
{
    CapturedWindow& window = addWindow({150, 150, 100, 100});
    ASSERT_TRUE(isVisible(window));
    changes.setContents(FrameContents::screen);
    changes.addWindow(window, WindowChange::altered, {});
    damage(window, {150, 150, 10, 10});
    changes.addRootDamage(windows, PixelRegion(source));
    EXPECT_TRUE(changes.isEmpty());
    EXPECT_FALSE(isVisible(window));
    window.needsClassification = true;
    EXPECT_FALSE(isVisible(window)) << "whatever it is";
    changes.add(PixelRegion(110, 110, 5, 5));
    EXPECT_TRUE(isSame(changes.take(), PixelRegion(110, 110, 5, 5)));
}

TEST_F(ChangeCollectorTest, thePointerIsDrawnWhereItWasAndWhereItIs)
{
    changes.movePointer({110, 110, 16, 16});
    EXPECT_TRUE(isSame(changes.take(), PixelRegion(110, 110, 16, 16)));
    changes.movePointer({200, 200, 8, 8});
    PixelRegion both(110, 110, 16, 16);
    both.add(200, 200, 8, 8);
    EXPECT_TRUE(isSame(changes.take(), both));
    changes.movePointer({0, 0, 16, 16});
    EXPECT_TRUE(isSame(changes.take(), PixelRegion(200, 200, 8, 8)));
    changes.movePointer({10, 10, 16, 16});
    EXPECT_TRUE(changes.isEmpty()) << "outside the source nothing is to be drawn";
}

TEST_F(ChangeCollectorTest, aPointerIsNearWhereItMaySoonBeInTheSource)
{
    EXPECT_TRUE(changes.isPointerNear({200, 200, 16, 16}));
    EXPECT_TRUE(changes.isPointerNear({500 + 63, 200, 16, 16}));
    EXPECT_FALSE(changes.isPointerNear({500 + 64, 200, 16, 16}));
    EXPECT_TRUE(changes.isPointerNear({200, 100 - 16 - 63, 16, 16}));
    EXPECT_FALSE(changes.isPointerNear({200, 100 - 16 - 64, 16, 16}));
    changes.setSource(source, PointerVisibility::hidden);
    EXPECT_FALSE(changes.isPointerNear({200, 200, 16, 16}));
}

TEST_F(ChangeCollectorTest, ofAHeldPlaceAndAFrozenPictureTheSoonerReleaseIsTheNext)
{
    using namespace std::chrono_literals;
    constexpr ChangeCollector::Clock::time_point start{};
    const CapturedWindow& panel = addWindow({200, 200, 50, 50});
    excluded.insert(panel.id);
    changes.setMasked(true);
    changes.addWindow(panel, WindowChange::vanished, start);
    changes.freeze(start, {ChangeCollector::longestFade + 50ms, 100ms});
    changes.updateMask({}, {}, start, start);
    EXPECT_EQ(changes.nextRelease(), start + ChangeCollector::longestFade);
    changes.updateMask({}, {}, start + ChangeCollector::longestFade, start + ChangeCollector::longestFade);
    EXPECT_EQ(changes.nextRelease(), start + ChangeCollector::longestFade + 50ms) << "what is left of the two";
}

TEST_F(ChangeCollectorTest, aPointersDistanceIsTheWayAlongTheFartherAxis)
{
    EXPECT_EQ(changes.pointerDistance({499, 399, 16, 16}), 0);
    EXPECT_EQ(changes.pointerDistance({500, 200, 16, 16}), 0);
    EXPECT_EQ(changes.pointerDistance({520, 200, 16, 16}), 20);
    EXPECT_EQ(changes.pointerDistance({200, 100 - 16 - 30, 16, 16}), 30);
    EXPECT_EQ(changes.pointerDistance({100 - 16 - 7, 430, 16, 16}), 30);
    changes.setSource(source, PointerVisibility::hidden);
    EXPECT_EQ(changes.pointerDistance({520, 200, 16, 16}), std::nullopt);
}

TEST_F(ChangeCollectorTest, aPointerThatIsNotShownIsNotDrawn)
{
    changes.setSource(source, PointerVisibility::hidden);
    (void)changes.take();
    changes.movePointer({110, 110, 16, 16});
    EXPECT_TRUE(changes.isEmpty());
}

TEST_F(ChangeCollectorTest, anotherSourceForgetsWhereThePointerWasDrawn)
{
    changes.movePointer({110, 110, 16, 16});
    const PixelRect larger{0, 0, 800, 600};
    changes.setSource(larger, PointerVisibility::shown);
    (void)changes.take();
    changes.movePointer({300, 300, 16, 16});
    EXPECT_TRUE(isSame(changes.take(), PixelRegion(300, 300, 16, 16)));
}

TEST_F(ChangeCollectorTest, everythingCanBeAskedForAnew)
{
    changes.add(PixelRegion(110, 110, 10, 10));
    changes.addAll();
    EXPECT_TRUE(isSame(changes.take(), PixelRegion(source)));
}

TEST_F(ChangeCollectorTest, whatAWindowTookOfOneThatIsLeftOutGoesAlongUntilItHasPainted)
{
    excluded.insert(addWindow({200, 200, 50, 50}).id);
    changes.updateMask(windows, {}, {}, {});
    CapturedWindow& window = addWindow({190, 190, 120, 100});
    changes.addWindow(window, WindowChange::filled, {});
    EXPECT_EQ(changes.unpainted().placeOf(window), PixelRegion(200, 200, 50, 50));
    window.x = 290;
    EXPECT_EQ(changes.unpainted().placeOf(window), PixelRegion(300, 200, 50, 50));
    EXPECT_TRUE(changes.isEmpty());
    changes.addWindow(window, WindowChange::settled, {});
    EXPECT_EQ(changes.take(), PixelRegion(300, 200, 50, 50)) << "now it is drawn there";
    EXPECT_TRUE(changes.unpainted().isEmpty());
}

TEST_F(ChangeCollectorTest, whatTheScreenDidNotShowNoWindowTook)
{
    excluded.insert(addWindow({200, 200, 50, 50}).id);
    CapturedWindow& unknown = addWindow({100, 100, 300, 300});
    unknown.needsClassification = true;
    addWindow({200, 200, 30, 50});
    changes.updateMask(windows, {}, {}, {});
    CapturedWindow& window = addWindow({190, 190, 120, 100});
    changes.addWindow(window, WindowChange::filled, {});
    EXPECT_EQ(changes.unpainted().placeOf(window), PixelRegion(230, 200, 20, 50)) << "the rest was covered";
}

TEST_F(ChangeCollectorTest, whatAWindowTookIsKnownWhenItsSizeIs)
{
    excluded.insert(addWindow({200, 200, 50, 50}).id);
    changes.updateMask(windows, {}, {}, {});
    CapturedWindow& window = addWindow({190, 190, 0, 0});
    changes.addWindow(window, WindowChange::filled, {});
    window.width = 40;
    window.height = 100;
    EXPECT_EQ(changes.unpainted().placeOf(window), PixelRegion(200, 200, 30, 50));
}

TEST_F(ChangeCollectorTest, aWindowTakesOfOneThatIsLeftOutAlsoWhatHasComeSinceTheLastPicture)
{
    CapturedWindow& panel = addWindow({200, 200, 50, 50});
    excluded.insert(panel.id);
    changes.updateMask(windows, {}, {}, {});
    changes.addWindow(panel, WindowChange::altered, {});
    panel.x = 260;
    changes.addWindow(panel, WindowChange::altered, {});
    CapturedWindow& window = addWindow({190, 190, 120, 100});
    changes.addWindow(window, WindowChange::filled, {});
    PixelRegion both(200, 200, 50, 50);
    both.add(260, 200, 50, 50);
    EXPECT_EQ(changes.unpainted().placeOf(window), both);
}

TEST_F(ChangeCollectorTest, whatAWindowTookAnotherTakesFromIt)
{
    excluded.insert(addWindow({200, 200, 50, 50}).id);
    changes.updateMask(windows, {}, {}, {});
    CapturedWindow& first = addWindow({190, 190, 120, 100});
    changes.addWindow(first, WindowChange::filled, {});
    first.x = 290;
    changes.updateMask(windows, {}, {}, {});
    CapturedWindow& second = addWindow({280, 180, 200, 200});
    changes.addWindow(second, WindowChange::filled, {});
    EXPECT_EQ(changes.unpainted().placeOf(second), PixelRegion(300, 200, 50, 50));
    changes.addWindow(first, WindowChange::vanished, {});
    EXPECT_TRUE(changes.unpainted().placeOf(first).isEmpty());
}

} // namespace
} // namespace nimbrale::x11
