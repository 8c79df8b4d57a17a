#include "region/region_overlay_view.h"

#include "region/region_overlay_window.h"
#include "tests/fakes/fake_platform.h"
#include "tests/fakes/offscreen_application.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Change = RegionOverlayWindow::Change;

const Rect screenFrame{0, 0, 1512, 982};
const Rect regionFrame{300, 200, 640, 400};
/// On the controls of that region, and beside them. Screen coordinates.
constexpr Point onHandle{620, 605};
constexpr Point onResize{943, 198};
constexpr Point onClose{943, 603};
constexpr Point onSettings{943, 575};
constexpr Point onRecord{943, 547};
constexpr Point inside{620, 400};

/// A frame on a fake desktop, which answers every step of a drag with the dragged frame.
class RegionOverlayViewTest : public testing::Test {
protected:
    RegionOverlayViewTest()
    {
        startOffscreenApplication();
        platform.screens().list = {makeScreen(1, screenFrame)};
        platform.screens().mouse = inside;
        window = RegionOverlayWindow::create(platform.panels(), platform.screens(), platform.mainQueue(), screenFrame,
                                             regionFrame);
        window->onChangeBegan = [this] { events.push_back("began"); };
        window->onChangeEnded = [this] { events.push_back("ended"); };
        window->onClose = [this] { events.push_back("close"); };
        window->onOpenSettings = [this] { events.push_back("settings"); };
        window->onToggleRecording = [this] { events.push_back("record"); };
        window->onChange = [this](const Rect& frame, DragZone zone, bool isCommandHeld) {
            asked.push_back(frame);
            zones.push_back(zone);
            commands.push_back(isCommandHeld);
            Change change = answer;
            change.frame = frame;
            return change;
        };
    }

    FakePanel& panel() { return platform.panels().last(); }
    RegionOverlayView& view() { return window->view(); }
    void pointAt(Point location)
    {
        platform.screens().mouse = location;
        platform.mainQueue().advance(40ms);
    }
    void click(Point location)
    {
        panel().press(location);
        panel().release(location);
    }
    bool takesClickAt(Point location)
    {
        const Rect frame = panel().frame();
        return std::any_of(panel().mouseRegion.begin(), panel().mouseRegion.end(), [&](const Rect& rect) {
            return pointerIsIn(rect, {location.x - frame.x, location.y - frame.y});
        });
    }

    FakePlatform platform;
    std::shared_ptr<RegionOverlayWindow> window;
    std::vector<std::string> events;
    std::vector<Rect> asked;
    std::vector<DragZone> zones;
    std::vector<bool> commands;
    /// What `onChange` answers besides the frame.
    Change answer;
};

TEST_F(RegionOverlayViewTest, WindowIsAnOverlayPanelAroundTheRegion)
{
    EXPECT_EQ(panel().options.style, PanelStyle::overlay);
    EXPECT_EQ(panel().options.level, 1000);
    EXPECT_EQ(panel().options.frame, (Rect{276, 176, 688, 448}));
    EXPECT_EQ(panel().order, FakePanel::Order::none);
    window->orderFront();
    EXPECT_EQ(panel().order, FakePanel::Order::front);
}

TEST_F(RegionOverlayViewTest, PanelLetsEveryClickThroughThatMissesTheControls)
{
    EXPECT_FALSE(takesClickAt(inside));
    EXPECT_FALSE(takesClickAt({297, 400})) << "the border is no control";
    EXPECT_FALSE(takesClickAt({280, 400}));
    EXPECT_TRUE(takesClickAt(onHandle));
    EXPECT_TRUE(takesClickAt(onResize));
    EXPECT_TRUE(takesClickAt(onClose));
    EXPECT_FALSE(takesClickAt({943 + 11, 603 + 11})) << "beside a round button";
}

TEST_F(RegionOverlayViewTest, ClickRightAfterArrivingOnAButtonCounts)
{
    platform.screens().mouse = onSettings; // Not looked at yet.
    click(onSettings);
    EXPECT_THAT(events, ElementsAre("settings"));
}

TEST_F(RegionOverlayViewTest, PointerIsLookedAtThirtyTimesASecond)
{
    platform.screens().mouse = onHandle;
    platform.mainQueue().advance(33ms);
    EXPECT_EQ(view().hoveredZone(), std::nullopt);
    platform.mainQueue().advance(1ms);
    EXPECT_EQ(view().hoveredZone(), DragZone::move);
    window->close();
    platform.screens().mouse = inside;
    platform.mainQueue().advance(1s);
    EXPECT_EQ(view().hoveredZone(), DragZone::move);
    EXPECT_EQ(panel().order, FakePanel::Order::out);
}

TEST_F(RegionOverlayViewTest, HoverSetsZoneButtonAndCursor)
{
    pointAt(onHandle);
    EXPECT_EQ(view().hoveredZone(), DragZone::move);
    EXPECT_EQ(panel().cursor, CursorShape::openHand);
    pointAt(onResize);
    EXPECT_EQ(view().hoveredZone(), DragZone::resize);
    EXPECT_EQ(panel().cursor, CursorShape::resizeBottomRight);
    pointAt(onRecord);
    EXPECT_EQ(view().hoveredZone(), std::nullopt);
    EXPECT_EQ(view().hoveredButton(), FrameButton::record);
    EXPECT_EQ(panel().cursor, CursorShape::pointingHand);
    pointAt(onHandle);
    EXPECT_EQ(view().hoveredButton(), std::nullopt);
    EXPECT_EQ(panel().cursor, CursorShape::openHand);
    pointAt(inside);
    EXPECT_EQ(view().hoveredZone(), std::nullopt);
    EXPECT_EQ(panel().cursor, CursorShape::arrow);
}

TEST_F(RegionOverlayViewTest, PointerAtRestDrawsNothing)
{
    pointAt(onHandle);
    panel().invalidated.clear();
    platform.mainQueue().advance(1s);
    EXPECT_THAT(panel().invalidated, IsEmpty());
}

TEST_F(RegionOverlayViewTest, SlackAroundTheResizeButtonCountsWhileItIsHovered)
{
    constexpr Point besideResize{931, 198};
    EXPECT_FALSE(takesClickAt(besideResize));
    pointAt(onResize);
    EXPECT_TRUE(takesClickAt(besideResize));
    pointAt(besideResize);
    EXPECT_FALSE(takesClickAt(besideResize));
}

TEST_F(RegionOverlayViewTest, ButtonsFireOnRelease)
{
    panel().press(onClose);
    EXPECT_EQ(view().pressedButton(), FrameButton::close);
    EXPECT_THAT(events, IsEmpty());
    panel().release(onClose);
    EXPECT_EQ(view().pressedButton(), std::nullopt);
    click(onSettings);
    click(onRecord);
    EXPECT_THAT(events, ElementsAre("close", "settings", "record"));
    EXPECT_FALSE(view().isDragging());
}

TEST_F(RegionOverlayViewTest, ButtonReleasedOutsideItselfDoesNothing)
{
    panel().press(onClose);
    panel().dragTo(inside);
    panel().release(inside);
    EXPECT_EQ(view().pressedButton(), std::nullopt);
    panel().press(onClose);
    panel().release(onSettings);
    EXPECT_THAT(events, IsEmpty());
    EXPECT_THAT(asked, IsEmpty());
}

TEST_F(RegionOverlayViewTest, ButtonsWithoutListenersAreHarmless)
{
    window->onClose = nullptr;
    click(onClose);
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(RegionOverlayViewTest, ButtonMayReleaseTheWindow)
{
    window->onClose = [this] { window.reset(); };
    click(onClose);
    platform.mainQueue().runPosted();
    EXPECT_THAT(platform.panels().living, IsEmpty());
}

TEST_F(RegionOverlayViewTest, ReleasedWindowLeavesNoTimer)
{
    window.reset();
    EXPECT_EQ(platform.mainQueue().pendingTimers(), 0U);
    EXPECT_THAT(platform.panels().living, IsEmpty());
}

TEST_F(RegionOverlayViewTest, PressElsewhereIsIgnored)
{
    constexpr Point onBorder{298, 400};
    constexpr Point besideHandle{onHandle.x - 24, onHandle.y};
    for (const Point location : {inside, onBorder, besideHandle}) {
        panel().press(location);
        EXPECT_FALSE(view().isDragging());
        panel().dragTo({location.x + 30, location.y + 30});
        panel().release({location.x + 30, location.y + 30});
        EXPECT_THAT(events, IsEmpty());
        EXPECT_THAT(asked, IsEmpty());
        EXPECT_EQ(panel().frame(), window->frameAtRest());
    }
    constexpr Point onHandlesEdge{onHandle.x - 22, onHandle.y};
    panel().press(onHandlesEdge);
    EXPECT_TRUE(view().isDragging()) << "one that counts";
}

TEST_F(RegionOverlayViewTest, DragBeginsWithTheWindowOverTheWholeDisplay)
{
    panel().press(onHandle);
    EXPECT_TRUE(view().isDragging());
    EXPECT_EQ(view().dragZone(), DragZone::move);
    EXPECT_EQ(panel().frame(), screenFrame);
    EXPECT_EQ(panel().cursor, CursorShape::closedHand);
    EXPECT_THAT(events, ElementsAre("began"));
    EXPECT_EQ(view().layout().handle(), (Rect{597, 592, 46, 22})) << "now in the display's coordinates";
}

TEST_F(RegionOverlayViewTest, DragBeginsInTheCoordinatesOfADisplayThatIsNotAtTheOrigin)
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

TEST_F(RegionOverlayViewTest, WhatIsInvalidBeforeTheWindowMovesIsDrawnBeforeIt)
{
    panel().commits = 0;
    panel().press(onHandle);
    EXPECT_EQ(panel().commits, 1);
    panel().dragTo({onHandle.x + 1, onHandle.y});
    EXPECT_EQ(panel().commits, 1);
    panel().release(onHandle);
    EXPECT_EQ(panel().commits, 2);
}

TEST_F(RegionOverlayViewTest, MoveFollowsThePointerInWholePoints)
{
    panel().press(onHandle);
    panel().dragTo({onHandle.x + 10.5, onHandle.y - 20.4}, true);
    EXPECT_THAT(asked, ElementsAre(Rect{311, 180, 640, 400}));
    EXPECT_THAT(zones, ElementsAre(DragZone::move));
    EXPECT_THAT(commands, ElementsAre(true));
    EXPECT_EQ(window->regionFrame(), asked.back());
}

TEST_F(RegionOverlayViewTest, ResizeKeepsTheTopLeftCorner)
{
    panel().press(onResize);
    EXPECT_EQ(view().dragZone(), DragZone::resize);
    panel().dragTo({onResize.x + 30, onResize.y - 20});
    EXPECT_THAT(asked, ElementsAre(Rect{300, 180, 670, 420}));
    EXPECT_THAT(zones, ElementsAre(DragZone::resize));
}

TEST_F(RegionOverlayViewTest, ResizeStopsAtFiftyPoints)
{
    panel().press(onResize);
    panel().dragTo({onResize.x - 2000, onResize.y + 2000});
    EXPECT_THAT(asked, ElementsAre(Rect{300, 550, 50, 50}));
}

TEST_F(RegionOverlayViewTest, PressBesideTheResizeButtonStartsAResize)
{
    panel().press({931, 198});
    EXPECT_EQ(view().dragZone(), DragZone::resize);
}

TEST_F(RegionOverlayViewTest, StepShowsWhatTheAnswerSays)
{
    answer.guides = {{756, 0, 0, 982}};
    answer.label = "640 × 400";
    panel().press(onHandle);
    panel().dragTo({onHandle.x + 1, onHandle.y});
    EXPECT_THAT(view().guides(), ElementsAre(Rect{756, 0, 0, 982}));
    EXPECT_EQ(view().sizeLabel(), "640 × 400");
    EXPECT_TRUE(view().layout().sizeLabelBackground());
}

TEST_F(RegionOverlayViewTest, WithoutAListenerTheFrameFollowsThePointer)
{
    window->onChange = nullptr;
    panel().press(onHandle);
    panel().dragTo({onHandle.x + 5, onHandle.y + 5});
    EXPECT_EQ(window->regionFrame(), (Rect{305, 205, 640, 400}));
    EXPECT_EQ(view().sizeLabel(), "");
}

TEST_F(RegionOverlayViewTest, StepOntoAnotherDisplayTakesTheWindowThere)
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

TEST_F(RegionOverlayViewTest, EndOfADragRestoresTheWindowBeforeItIsReported)
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

TEST_F(RegionOverlayViewTest, ClosedHandOpensAgainAfterTheDrag)
{
    pointAt(onHandle);
    panel().press(onHandle);
    EXPECT_EQ(panel().cursor, CursorShape::closedHand);
    panel().release(onHandle);
    EXPECT_EQ(panel().cursor, CursorShape::openHand);
}

TEST_F(RegionOverlayViewTest, PointerIsNotLookedAtDuringADrag)
{
    panel().press(onHandle);
    pointAt(onClose);
    EXPECT_EQ(view().hoveredButton(), std::nullopt);
    panel().release(onHandle);
    pointAt(onClose);
    EXPECT_EQ(view().hoveredButton(), FrameButton::close);
}

TEST_F(RegionOverlayViewTest, DragWithoutAPressIsIgnored)
{
    panel().dragTo({10, 10});
    panel().release({10, 10});
    EXPECT_THAT(asked, IsEmpty());
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(RegionOverlayViewTest, HandleKeepsClearOfTheHousingOfItsOwnDisplay)
{
    Screen notched = makeScreen(2, screenFrame);
    notched.cameraHousing = CameraHousing{666, 666, 32};
    platform.screens().list = {notched};
    window->setRegionFrame({456, 582, 600, 400});
    window->setFrame(window->frameAtRest());
    EXPECT_EQ(view().layout().handle().movedBy(panel().frame().x, panel().frame().y), (Rect{614, 960, 46, 22}));
    platform.screens().list.front().frame.width = 1511;
    view().repaint();
    EXPECT_EQ(view().layout().handle().movedBy(panel().frame().x, panel().frame().y), (Rect{733, 960, 46, 22}));
}

TEST_F(RegionOverlayViewTest, RecordingTimeDrawsOnlyWhenItsTextChanges)
{
    panel().invalidated.clear();
    view().setRecordingTime(0.5);
    EXPECT_FALSE(panel().invalidated.empty());
    EXPECT_TRUE(view().layout().recordingBackground());
    panel().invalidated.clear();
    view().setRecordingTime(0.9);
    EXPECT_EQ(view().recordingTime(), 0.9);
    EXPECT_THAT(panel().invalidated, IsEmpty());
    view().setRecordingTime(1.1);
    EXPECT_THAT(panel().invalidated, SizeIs(2)) << "the text's place before and after";
    view().setRecordingTime(std::nullopt);
    EXPECT_EQ(view().layout().recordingBackground(), std::nullopt);
    panel().invalidated.clear();
    view().setRecordingTime(std::nullopt);
    EXPECT_THAT(panel().invalidated, IsEmpty());
}

TEST_F(RegionOverlayViewTest, NewScaleDrawsAnew)
{
    panel().invalidated.clear();
    panel().scale = 2;
    panel().onBackingScaleChange();
    EXPECT_FALSE(panel().invalidated.empty());
}

} // namespace
} // namespace nimbrale
