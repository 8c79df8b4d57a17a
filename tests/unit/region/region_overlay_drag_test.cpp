// The frame while it is dragged.

#include "tests/unit/region/region_overlay_view_fixture.h"

#include <gmock/gmock.h>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using RegionOverlayDragTest = RegionOverlayViewTest;

TEST_F(RegionOverlayDragTest, DragBeginsWithTheWindowOverTheWholeDisplay)
{
    panel().press(onHandle);
    EXPECT_TRUE(view().isDragging());
    EXPECT_EQ(view().dragZone(), DragZone::move);
    EXPECT_EQ(panel().frame(), screenFrame);
    EXPECT_EQ(panel().cursor, CursorShape::closedHand);
    EXPECT_THAT(events, ElementsAre("began"));
    EXPECT_EQ(view().layout().handle(), (Rect{597, 592, 46, 22})) << "now in the display's coordinates";
}

TEST_F(RegionOverlayDragTest, DragBeginsInTheCoordinatesOfADisplayThatIsNotAtTheOrigin)
{
    constexpr double dx = -1512;
    constexpr double dy = 130;
    const Rect besideMain = screenFrame.movedBy(dx, dy);
    std::vector<Rect> framesAtStart;
    window->setScreenFrame(besideMain);
    window->setRegionFrame(regionFrame.movedBy(dx, dy));
    window->setFrame(window->frameAtRest());
    window->onChangeBegan = [&] { framesAtStart.push_back(panel().frame()); };
    panel().press({onHandle.x + dx, onHandle.y + dy});
    EXPECT_THAT(framesAtStart, ElementsAre(window->frameAtRest())) << "told before the panel grows";
    EXPECT_EQ(panel().frame(), besideMain);
    EXPECT_EQ(view().layout().handle(), (Rect{597, 592, 46, 22}));
    panel().dragTo({onHandle.x + dx + 10, onHandle.y + dy});
    EXPECT_THAT(asked, ElementsAre(regionFrame.movedBy(dx + 10, dy)));
}

TEST_F(RegionOverlayDragTest, WhatIsInvalidBeforeTheWindowMovesIsDrawnBeforeIt)
{
    panel().commits = 0;
    panel().press(onHandle);
    EXPECT_EQ(panel().commits, 1);
    panel().dragTo({onHandle.x + 1, onHandle.y});
    EXPECT_EQ(panel().commits, 1);
    panel().release(onHandle);
    EXPECT_EQ(panel().commits, 2);
}

TEST_F(RegionOverlayDragTest, MoveFollowsThePointerInWholePoints)
{
    panel().press(onHandle);
    panel().dragTo({onHandle.x + 10.5, onHandle.y - 20.4}, true);
    EXPECT_THAT(asked, ElementsAre(Rect{311, 180, 640, 400}));
    EXPECT_THAT(zones, ElementsAre(DragZone::move));
    EXPECT_THAT(commands, ElementsAre(true));
    EXPECT_EQ(window->regionFrame(), asked.back());
}

TEST_F(RegionOverlayDragTest, ResizeKeepsTheTopLeftCorner)
{
    panel().press(onResize);
    EXPECT_EQ(view().dragZone(), DragZone::resize);
    panel().dragTo({onResize.x + 30, onResize.y - 20});
    EXPECT_THAT(asked, ElementsAre(Rect{300, 180, 670, 420}));
    EXPECT_THAT(zones, ElementsAre(DragZone::resize));
}

TEST_F(RegionOverlayDragTest, ResizeStopsAtFiftyPoints)
{
    panel().press(onResize);
    panel().dragTo({onResize.x - 2000, onResize.y + 2000});
    EXPECT_THAT(asked, ElementsAre(Rect{300, 550, 50, 50}));
}

TEST_F(RegionOverlayDragTest, PressBesideTheResizeButtonStartsAResize)
{
    panel().press({931, 198});
    EXPECT_EQ(view().dragZone(), DragZone::resize);
}

TEST_F(RegionOverlayDragTest, StepShowsWhatTheAnswerSays)
{
    answer.guides = {{756, 0, 0, 982}};
    answer.label = "640 × 400";
    panel().press(onHandle);
    panel().dragTo({onHandle.x + 1, onHandle.y});
    EXPECT_THAT(view().guides(), ElementsAre(Rect{756, 0, 0, 982}));
    EXPECT_EQ(view().sizeLabel(), "640 × 400");
    EXPECT_TRUE(view().layout().sizeLabelBackground());
}

TEST_F(RegionOverlayDragTest, WithoutAListenerTheFrameFollowsThePointer)
{
    window->onChange = nullptr;
    panel().press(onHandle);
    panel().dragTo({onHandle.x + 5, onHandle.y + 5});
    EXPECT_EQ(window->regionFrame(), (Rect{305, 205, 640, 400}));
    EXPECT_EQ(view().sizeLabel(), "");
}

TEST_F(RegionOverlayDragTest, StepOntoAnotherDisplayTakesTheWindowThere)
{
    const Rect sideFrame{1512, 0, 1280, 1024};
    panel().press(onHandle);
    answer.screenFrame = sideFrame;
    panel().dragTo({onHandle.x + 1500, onHandle.y});
    EXPECT_EQ(window->screenFrame(), sideFrame);
    EXPECT_EQ(panel().frame(), sideFrame);
    EXPECT_EQ(view().layout().borderOuter(), (Rect{283, 195, 650, 410})) << "in the new window's coordinates";
    panel().frames.clear();
    panel().dragTo({onHandle.x + 1510, onHandle.y});
    EXPECT_THAT(panel().frames, IsEmpty()) << "the same display does not move the window";
}

TEST_F(RegionOverlayDragTest, EndOfADragRestoresTheWindowBeforeItIsReported)
{
    answer.guides = {{756, 0, 0, 982}};
    answer.label = "640 × 400";
    panel().press(onHandle);
    panel().dragTo({onHandle.x + 10, onHandle.y});
    Rect frameWhenEnded;
    window->onChangeEnded = [&] { frameWhenEnded = panel().frame(); };
    panel().release({onHandle.x + 10, onHandle.y});
    EXPECT_EQ(frameWhenEnded, (Rect{286, 176, 688, 448}));
    EXPECT_FALSE(view().isDragging());
    EXPECT_EQ(view().dragZone(), std::nullopt);
    EXPECT_THAT(view().guides(), IsEmpty());
    EXPECT_EQ(view().sizeLabel(), "");
}

TEST_F(RegionOverlayDragTest, ClosedHandOpensAgainAfterTheDrag)
{
    pointAt(onHandle);
    panel().press(onHandle);
    EXPECT_EQ(panel().cursor, CursorShape::closedHand);
    panel().release(onHandle);
    EXPECT_EQ(panel().cursor, CursorShape::openHand);
}

TEST_F(RegionOverlayDragTest, PointerIsNotLookedAtDuringADrag)
{
    panel().press(onHandle);
    pointAt(onClose);
    EXPECT_EQ(view().hoveredButton(), std::nullopt);
    panel().release(onHandle);
    pointAt(onClose);
    EXPECT_EQ(view().hoveredButton(), FrameButton::close);
}

TEST_F(RegionOverlayDragTest, DragWithoutAPressIsIgnored)
{
    panel().dragTo({10, 10});
    panel().release({10, 10});
    EXPECT_THAT(asked, IsEmpty());
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(RegionOverlayDragTest, GuidesAreShownInTheCoordinatesOfADisplayThatIsNotAtTheOrigin)
{
    window->setScreenFrame(screenFrame.movedBy(-1512, 130));
    window->setRegionFrame(regionFrame.movedBy(-1512, 130));
    window->setFrame(window->frameAtRest());
    answer.guides = {{-1012, 130, 0, 982}};
    panel().press({onHandle.x - 1512, onHandle.y + 130});
    panel().dragTo({onHandle.x - 1500, onHandle.y + 130});
    EXPECT_THAT(view().layout().guides(), ElementsAre(Rect{500, 0, 0, 982}));
}

TEST_F(RegionOverlayDragTest, StepLeavesThePlacesOfClicksAloneUntilTheEnd)
{
    panel().press(onHandle);
    const std::vector<Rect> before = panel().mouseRegion;
    panel().dragTo({onHandle.x + 100, onHandle.y});
    EXPECT_EQ(panel().mouseRegion, before) << "the panel gets every event anyway";
    panel().release({onHandle.x + 100, onHandle.y});
    EXPECT_TRUE(panel().takesClickAt({onHandle.x + 100, onHandle.y}));
    EXPECT_FALSE(panel().takesClickAt(onHandle));
}

TEST_F(RegionOverlayDragTest, PanelKnowsItsPartsInTheirNewPlacesBeforeItMoves)
{
    panel().press(onHandle);
    EXPECT_EQ(panel().coverageAtLastFrame, panel().rootLayer().coverage());
    panel().release(onHandle);
    EXPECT_EQ(panel().coverageAtLastFrame, panel().rootLayer().coverage());
}

} // namespace
} // namespace nimbrale
