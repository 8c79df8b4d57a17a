#include "tests/fakes/folder_events.h"
#include "tests/unit/region/region_editor_fixture.h"

#include <filesystem>
#include <gmock/gmock.h>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;

TEST_F(RegionEditorTest, ShowsTheFrameAroundTheRegionWithoutActivating)
{
    EXPECT_EQ(capture->region(), (Rect{100, 75, 400, 300}));
    EXPECT_EQ(overlay().regionFrame(), (Rect{100, 525, 400, 300}));
    EXPECT_EQ(overlay().screenFrame(), (Rect{0, 0, 1440, 900}));
    EXPECT_EQ(panel().frame(), (Rect{76, 501, 448, 348}));
    EXPECT_EQ(panel().order, FakePanel::Order::front);
    EXPECT_TRUE(platform.workspace().activations.empty());
}

TEST_F(RegionEditorTest, DragStepMovesTheCapturesRegionAndReportsIt)
{
    press(DragZone::move);
    dragBy(45, -40);
    EXPECT_EQ(capture->region(), (Rect{145, 115, 400, 300}));
    EXPECT_THAT(regions, ElementsAre(Rect{145, 115, 400, 300}));
    EXPECT_EQ(stream().configuration.sourceRect, (Rect{145, 115, 400, 300})) << "the capture was told";
    EXPECT_EQ(overlay().regionFrame(), (Rect{145, 485, 400, 300}));
    EXPECT_EQ(overlay().view().sizeLabel(), "400 × 300");
    release();
    EXPECT_THAT(events, ElementsAre("ended"));
}

TEST_F(RegionEditorTest, DragStepsGoToNoDisk)
{
    FolderEvents folderEvents(folder.path().toStdString());
    ASSERT_TRUE(folderEvents.isWatching());
    press(DragZone::move);
    const std::filesystem::path file = folder.filePath("settings.conf").toStdString();
    std::filesystem::last_write_time(file, std::filesystem::file_time_type::clock::now());
    dragBy(-1, -1);
    stream().completeConfigurationUpdate();
    ASSERT_TRUE(folderEvents.take("settings.conf").wasOpened) << "a file that may have changed is read, and it is seen";
    for (int step = 0; step < 100; ++step) {
        dragBy(step, -step);
        stream().completeConfigurationUpdate();
    }
    EXPECT_EQ(capture->region().x, 199) << "the frame followed";
    EXPECT_FALSE(folderEvents.take("settings.conf").wasOpened);
}

TEST_F(RegionEditorTest, MoveSnapsWithGuidesThatSpanTheDisplay)
{
    press(DragZone::move);
    dragBy(-93, 48);
    EXPECT_EQ(capture->region(), (Rect{0, 24, 400, 300})) << "against the left edge and the menu bar";
    EXPECT_THAT(overlay().view().guides(), ElementsAre(Rect{0, 0, 0, 900}, Rect{0, 876, 1440, 0}));
}

TEST_F(RegionEditorTest, CommandSwitchesSnappingOffForTheStep)
{
    press(DragZone::move);
    dragBy(-93, 48, true);
    EXPECT_EQ(capture->region(), (Rect{7, 27, 400, 300}));
    EXPECT_THAT(overlay().view().guides(), IsEmpty());
    dragBy(-93, 48);
    EXPECT_EQ(capture->region().x, 0) << "snaps again as soon as the key is let go";
}

TEST_F(RegionEditorTest, CommandWithSnappingOnStillClamps)
{
    press(DragZone::move);
    dragBy(-130, 0, true);
    EXPECT_EQ(capture->region(), (Rect{0, 75, 400, 300}));
}

TEST_F(RegionEditorTest, CommandSwitchesSnappingOnWhereItIsOff)
{
    settings.setSnappingEnabled(false);
    press(DragZone::move);
    dragBy(-93, 48);
    EXPECT_EQ(capture->region(), (Rect{7, 27, 400, 300}));
    EXPECT_THAT(overlay().view().guides(), IsEmpty());
    dragBy(-93, 48, true);
    EXPECT_EQ(capture->region(), (Rect{0, 24, 400, 300}));
}

TEST_F(RegionEditorTest, FramePushedOffTheLeftEdgeKeepsItsSize)
{
    press(DragZone::move);
    dragBy(-400, 0);
    EXPECT_EQ(capture->region(), (Rect{0, 75, 400, 300}));
    EXPECT_EQ(overlay().regionFrame(), (Rect{0, 525, 400, 300})) << "the frame shows what is captured";
}

TEST_F(RegionEditorTest, ResizeBelowTheDisplaysBottomIsCutThere)
{
    press(DragZone::resize);
    dragBy(50, -700);
    EXPECT_EQ(capture->region(), (Rect{100, 75, 450, 825}));
    EXPECT_EQ(overlay().regionFrame(), (Rect{100, 0, 450, 825}));
}

TEST_F(RegionEditorTest, ResizeSnapsToAFractionOfTheArea)
{
    press(DragZone::resize);
    dragBy(326, -20);
    EXPECT_EQ(capture->region(), (Rect{100, 75, 720, 320}));
    EXPECT_THAT(overlay().view().guides(), ElementsAre(Rect{820, 0, 0, 900}));
    EXPECT_EQ(overlay().view().sizeLabel(), "720 × 320 · ½ width");
}

TEST_F(RegionEditorTest, ShowRegionMovesTheFrame)
{
    panel().invalidated.clear();
    frameEditor->showRegion({10, 30, 200, 100});
    EXPECT_EQ(overlay().regionFrame(), (Rect{10, 770, 200, 100}));
    EXPECT_EQ(panel().frame(), (Rect{-14, 746, 248, 148}));
    // The window is 24 points larger than the region on every side. Layers count from its top.
    EXPECT_THAT(panel().invalidated, IsSupersetOf({
                                         Rect{19, 19, 210, 5},   // the border's top
                                         Rect{19, 124, 210, 5},  // its bottom
                                         Rect{19, 24, 5, 100},   // its left
                                         Rect{224, 24, 5, 100},  // its right
                                         Rect{91, 0, 66, 42},    // the handle with its shadow
                                         Rect{206, 0, 42, 42},   // the close button with its shadow
                                         Rect{206, 105, 42, 42}, // the resize button with its shadow
                                     }));
}

TEST_F(RegionEditorTest, ShowRegionDuringADragHasNoEffect)
{
    press(DragZone::move);
    dragBy(45, -40);
    frameEditor->showRegion({10, 30, 200, 100});
    EXPECT_EQ(overlay().regionFrame(), (Rect{145, 485, 400, 300}));
    EXPECT_EQ(panel().frame(), (Rect{0, 0, 1440, 900}));
}

TEST_F(RegionEditorTest, StartOfADragEndsTextEditing)
{
    press(DragZone::resize);
    EXPECT_EQ(platform.workspace().focusDrops, 1);
    dragBy(5, 5);
    EXPECT_EQ(platform.workspace().focusDrops, 1);
}

TEST_F(RegionEditorTest, ButtonsArePassedUp)
{
    for (const FrameButton button : allFrameButtons) {
        const Point centre = centreOf(overlay().view().layout().button(button));
        panel().press(centre);
        panel().release(centre);
    }
    EXPECT_THAT(events, ElementsAre("close", "settings", "record"));
    EXPECT_EQ(platform.workspace().focusDrops, 0);
}

TEST_F(RegionEditorTest, CallbacksThatAreNotSetAreSkipped)
{
    frameEditor->onClose = nullptr;
    frameEditor->onRegionChange = nullptr;
    frameEditor->onRegionChangeEnded = nullptr;
    frameEditor->onMoveToDisplay = nullptr;
    const Point centre = centreOf(overlay().view().layout().button(FrameButton::close));
    panel().press(centre);
    panel().release(centre);
    press(DragZone::move);
    dragBy(45, 0);
    release();
    EXPECT_EQ(capture->region().x, 145);
    press(DragZone::move);
    dragBy(1600, 0);
    release();
    EXPECT_EQ(frameEditor->pendingMove(), std::nullopt);
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(RegionEditorTest, CloseHidesTheFrameAndStopsItsTimer)
{
    frameEditor->close();
    EXPECT_EQ(panel().order, FakePanel::Order::out);
    EXPECT_EQ(queue.pendingTimers(), 0U);
}

TEST_F(RegionEditorTest, CloseButtonMayReleaseTheEditor)
{
    frameEditor->onClose = [this] {
        frameEditor->close();
        frameEditor.reset();
    };
    const Point centre = centreOf(overlay().view().layout().button(FrameButton::close));
    panel().press(centre);
    panel().release(centre);
    queue.runPosted();
    EXPECT_THAT(platform.panels().living, IsEmpty());
}

TEST_F(RegionEditorTest, EndOfAMoveMayReplaceTheEditor)
{
    frameEditor->onMoveToDisplay = [this](DisplayID, const DisplayGeometry& geometry, const Rect& region) {
        frameEditor->close();
        capture->setRegion(region);
        makeEditorOn(geometry);
    };
    press(DragZone::move);
    dragBy(1600, -40);
    release();
    queue.runPosted();
    ASSERT_EQ(platform.panels().living.size(), 1U);
    EXPECT_EQ(overlay().regionFrame(), (Rect{1700, 485, 400, 300}));
}

TEST_F(RegionEditorTest, StepAfterTheEditorIsGoneLeavesTheFrameAsDragged)
{
    const auto onChange = overlay().onChange;
    const auto onChangeEnded = overlay().onChangeEnded;
    const auto onCloseButton = overlay().onClose;
    press(DragZone::move);
    frameEditor.reset();
    const RegionOverlayWindow::Change change = onChange({1, 2, 300, 200}, DragZone::move, false);
    EXPECT_EQ(change.frame, (Rect{1, 2, 300, 200}));
    EXPECT_THAT(change.guides, IsEmpty());
    EXPECT_EQ(change.label, "");
    EXPECT_EQ(change.screenFrame, std::nullopt);
    onChangeEnded();
    onCloseButton();
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(RegionEditorTest, DescribesTheControlsAsLongAsTheFrameIsShown)
{
    const auto& described = platform.workspace().described();
    ASSERT_EQ(described.count("Nimbrale frame"), 1U);
    EXPECT_EQ(described.at("Nimbrale frame")().size(), 5U);
    frameEditor->close();
    EXPECT_TRUE(described.empty());
}

} // namespace
} // namespace nimbrale
