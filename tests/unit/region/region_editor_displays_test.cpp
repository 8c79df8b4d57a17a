// Drags over the edges of displays and onto others.

#include "share/virtual_display.h"
#include "tests/unit/region/region_editor_fixture.h"

#include <gmock/gmock.h>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(RegionEditorTest, MoveThatEndsOverAnotherDisplayIsHandedUp)
{
    Screen& side = screens.list.front();
    side.visibleFrame = {1440, 0, 1280, 1024 - 31};
    press(DragZone::move);
    dragBy(45, -40);
    ASSERT_THAT(regions, ElementsAre(Rect{145, 115, 400, 300}));
    dragBy(1600, -40);
    ASSERT_TRUE(frameEditor->pendingMove());
    EXPECT_EQ(frameEditor->pendingMove()->displayID, sideDisplay);
    EXPECT_THAT(regions, ElementsAre(Rect{145, 115, 400, 300})) << "a step over another display is not reported";
    EXPECT_EQ(capture->region(), (Rect{145, 115, 400, 300})) << "the capture stays as it was";
    EXPECT_EQ(stream().configuration.sourceRect, (Rect{145, 115, 400, 300}));
    EXPECT_EQ(panel().frame(), (Rect{1440, 0, 1280, 1024})) << "the panel covers the new display";
    release();
    EXPECT_THAT(events, ElementsAre("moved"));
    EXPECT_EQ(movedTo->displayID, sideDisplay);
    EXPECT_EQ(movedTo->geometry, (DisplayGeometry{{1280, 1024}, {1440, 0, 1280, 1024}, 30}));
    EXPECT_EQ(movedTo->region, (Rect{260, 239, 400, 300}));
    EXPECT_EQ(frameEditor->pendingMove(), std::nullopt);
}

TEST_F(RegionEditorTest, RegionIsClampedAndSnappedToTheOtherDisplay)
{
    press(DragZone::move);
    // The pointer is on the side display while most of the frame is not yet.
    dragBy(1200, -40);
    EXPECT_EQ(frameEditor->pendingMove()->region, (Rect{0, 239, 400, 300})) << "its size is kept";
    dragBy(1338, -40);
    EXPECT_EQ(frameEditor->pendingMove()->region, (Rect{0, 239, 400, 300}));
    EXPECT_THAT(overlay().view().guides(), ElementsAre(Rect{1440, 0, 0, 1024}));
    EXPECT_EQ(overlay().regionFrame(), (Rect{1440, 485, 400, 300}));
}

TEST_F(RegionEditorTest, CommandSwitchesSnappingOffOnTheOtherDisplayToo)
{
    press(DragZone::move);
    dragBy(1345, 0, true);
    EXPECT_EQ(frameEditor->pendingMove()->region.x, 5);
    EXPECT_THAT(overlay().view().guides(), IsEmpty());
}

TEST_F(RegionEditorTest, MoveThatComesBackEndsOnTheFirstDisplay)
{
    press(DragZone::move);
    dragBy(1600, 0);
    dragBy(45, -40);
    EXPECT_EQ(frameEditor->pendingMove(), std::nullopt);
    EXPECT_EQ(panel().frame(), (Rect{0, 0, 1440, 900}));
    release();
    EXPECT_THAT(events, ElementsAre("ended"));
    EXPECT_EQ(capture->region(), (Rect{145, 115, 400, 300}));
    EXPECT_EQ(panel().frame(), (Rect{121, 461, 448, 348}));
}

TEST_F(RegionEditorTest, ResizeNeverLeavesTheDisplay)
{
    press(DragZone::resize);
    dragBy(1600, -25);
    EXPECT_EQ(frameEditor->pendingMove(), std::nullopt);
    EXPECT_EQ(capture->region(), (Rect{100, 75, 1340, 325}));
}

TEST_F(RegionEditorTest, DisplayWithoutIdentifierCountsAsTheCurrentOne)
{
    screens.list.front().displayID = 0;
    press(DragZone::move);
    dragBy(1600, 0);
    EXPECT_EQ(frameEditor->pendingMove(), std::nullopt);
    EXPECT_EQ(capture->region().x, 1040);
}

TEST_F(RegionEditorTest, PointerOnNoDisplayStaysOnTheCurrentOne)
{
    press(DragZone::move);
    dragBy(0, 2000);
    EXPECT_EQ(frameEditor->pendingMove(), std::nullopt);
    EXPECT_EQ(capture->region(), (Rect{100, 0, 400, 300}));
}

TEST_F(RegionEditorTest, OwnVirtualDisplayNeverTakesTheFrame)
{
    auto made = VirtualDisplay::create(platform.virtualDisplays(), screens, queue);
    ASSERT_TRUE(made);
    const auto own = VirtualDisplay::currentDisplayID();
    ASSERT_TRUE(own);
    screens.list.front().displayID = *own;
    press(DragZone::move);
    dragBy(1600, 0);
    EXPECT_EQ(frameEditor->pendingMove(), std::nullopt);
}

TEST_F(RegionEditorTest, CaptureWithoutGeometryKeepsItsRegion)
{
    const DisplayGeometry geometry = *capture->geometry();
    capture = RegionCapture::create(screenCapture, screens, queue, settings);
    capture->setRegion({100, 75, 400, 300});
    screens.list.erase(screens.list.begin()); // A capture without display takes every display for another one.
    screens.list.front().displayID = 0;
    makeEditorOn(geometry);
    press(DragZone::move);
    dragBy(45, 0);
    EXPECT_THAT(regions, ElementsAre(Rect{100, 75, 400, 300}));
    EXPECT_EQ(overlay().regionFrame(), (Rect{100, 525, 400, 300}));
}

TEST_F(RegionEditorTest, CaptureWithoutDisplayTakesEveryDisplayForAnotherOne)
{
    const DisplayGeometry geometry = *capture->geometry();
    capture = RegionCapture::create(screenCapture, screens, queue, settings);
    capture->setRegion({100, 75, 400, 300});
    makeEditorOn(geometry);
    press(DragZone::move);
    dragBy(45, 0);
    ASSERT_TRUE(frameEditor->pendingMove());
    EXPECT_EQ(frameEditor->pendingMove()->displayID, mainDisplay);
}

} // namespace
} // namespace nimbrale
