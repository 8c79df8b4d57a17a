#include "tests/unit/region/region_overlay_view_fixture.h"

#include <gmock/gmock.h>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

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
    EXPECT_FALSE(panel().takesClickAt(inside));
    EXPECT_FALSE(panel().takesClickAt({297, 400})) << "the border is no control";
    EXPECT_FALSE(panel().takesClickAt({280, 400}));
    EXPECT_TRUE(panel().takesClickAt(onHandle));
    EXPECT_TRUE(panel().takesClickAt(onResize));
    EXPECT_TRUE(panel().takesClickAt(onClose));
    EXPECT_FALSE(panel().takesClickAt({943 + 11, 603 + 11})) << "beside a round button";
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
    EXPECT_FALSE(panel().takesClickAt(besideResize));
    pointAt(onResize);
    EXPECT_TRUE(panel().takesClickAt(besideResize));
    pointAt(besideResize);
    EXPECT_FALSE(panel().takesClickAt(besideResize));
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

TEST_F(RegionOverlayViewTest, ControlsKeepOffTheBarsOfItsOwnDisplay)
{
    Screen barred = makeScreen(2, screenFrame);
    barred.reachableFrame = Rect{screenFrame.x, screenFrame.y, screenFrame.width, screenFrame.height - 30};
    platform.screens().list = {barred};
    window->setRegionFrame({456, 582, 600, 400});
    window->setFrame(window->frameAtRest());
    EXPECT_EQ(view().layout().handle().maxY() + panel().frame().y, barred.reachableFrame->maxY());
    platform.screens().list.front().frame.width -= 1;
    view().repaint();
    EXPECT_EQ(view().layout().handle().maxY() + panel().frame().y, screenFrame.maxY()) << "another display's bars";
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

TEST_F(RegionOverlayViewTest, RecordingTimeThatGrowsWiderIsDrawnWholeAndClearedWhole)
{
    const auto place = [this] {
        const Rect background = view().layout().recordingBackground()->grownBy(RegionOverlayLayout::shadowRoom);
        return Rect{background.x, panel().frame().height - background.maxY(), background.width, background.height};
    };
    view().setRecordingTime(3599);
    const Rect narrow = place();
    panel().invalidated.clear();
    view().setRecordingTime(3600);
    const Rect wide = place();
    ASSERT_GT(wide.width, narrow.width);
    EXPECT_THAT(panel().invalidated, ElementsAre(narrow, wide));
    panel().invalidated.clear();
    view().setRecordingTime(std::nullopt);
    EXPECT_THAT(panel().invalidated, Contains(wide));
}

TEST_F(RegionOverlayViewTest, ButtonOverAnotherControlIsHoveredAndPressedAlone)
{
    window->setRegionFrame({300, 200, 50, 400});
    window->setFrame(window->frameAtRest());
    const Rect frame = panel().frame();
    const Rect close = view().layout().button(FrameButton::close).movedBy(frame.x, frame.y);
    const Rect handle = view().layout().handle().movedBy(frame.x, frame.y);
    const Point onBoth{close.minX() + 3, close.midY()};
    ASSERT_TRUE(pointerIsIn(handle, onBoth));
    pointAt(onBoth);
    EXPECT_EQ(view().hoveredButton(), FrameButton::close);
    EXPECT_EQ(view().hoveredZone(), std::nullopt);
    panel().press(onBoth);
    EXPECT_EQ(view().pressedButton(), FrameButton::close);
    EXPECT_FALSE(view().isDragging());
}

TEST_F(RegionOverlayViewTest, LayerIsAskedWhereThereIsSomethingToPaint)
{
    std::vector<Rect> expected;
    for (const Rect& rect : view().layout().coverage())
        expected.push_back({rect.x, panel().frame().height - rect.maxY(), rect.width, rect.height});
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(panel().rootLayer().coverage(), expected);
}

TEST_F(RegionOverlayViewTest, ViewThatIsGonePaintsNoMore)
{
    {
        const RegionOverlayView another(*window, OverlayColors{});
        EXPECT_TRUE(panel().rootLayer().painter());
    }
    EXPECT_FALSE(panel().rootLayer().painter());
}

TEST_F(RegionOverlayViewTest, WhatWasThereFromTheStartIsCleared)
{
    const Rect border = view().layout().borderBands()[0];
    const Rect inLayer{border.x, panel().frame().height - border.maxY(), border.width, border.height};
    panel().invalidated.clear();
    window->setRegionFrame(regionFrame.movedBy(50, 50));
    view().repaint();
    EXPECT_THAT(panel().invalidated, Contains(inLayer));
}

TEST_F(RegionOverlayViewTest, NewScaleDrawsAnew)
{
    panel().invalidated.clear();
    panel().scale = 2;
    panel().onBackingScaleChange();
    EXPECT_FALSE(panel().invalidated.empty());
}

TEST_F(RegionOverlayViewTest, EveryControlHasATipThatSaysWhatItDoes)
{
    const std::pair<Point, const char*> tips[]{{onClose, "Nimbrale: Close"},
                                               {onSettings, "Nimbrale: Settings"},
                                               {onRecord, "Nimbrale: Record"},
                                               {onHandle, "Nimbrale: Move"},
                                               {onResize, "Nimbrale: Resize"}};
    for (const auto& [place, title] : tips) {
        pointAt(place);
        platform.mainQueue().advance(std::chrono::seconds{1});
        ASSERT_EQ(platform.panels().living.size(), 2U) << title;
        EXPECT_EQ(platform.panels().last().title, title);
    }
    pointAt(inside);
    EXPECT_EQ(platform.panels().living.size(), 1U);
}

TEST_F(RegionOverlayViewTest, TheRecordButtonsTipTellsWhatItDoesNow)
{
    view().setRecordingTime(3);
    pointAt(onRecord);
    platform.mainQueue().advance(std::chrono::seconds{1});
    EXPECT_EQ(platform.panels().last().title, "Nimbrale: Stop recording");
}

TEST_F(RegionOverlayViewTest, APressOrAMovedFrameEndsTheTip)
{
    const auto showTip = [&] {
        pointAt(inside);
        pointAt(onSettings);
        platform.mainQueue().advance(std::chrono::seconds{1});
        return platform.panels().living.size() == 2;
    };
    ASSERT_TRUE(showTip());
    click(onSettings);
    platform.mainQueue().advance(std::chrono::seconds{5});
    EXPECT_EQ(platform.panels().living.size(), 1U) << "a click";
    ASSERT_TRUE(showTip());
    window->setFrame(window->frameAtRest());
    EXPECT_EQ(platform.panels().living.size(), 1U) << "a moved frame";
    ASSERT_TRUE(showTip());
    window->close();
    EXPECT_EQ(platform.panels().living.size(), 1U) << "a closed frame";
}

TEST_F(RegionOverlayViewTest, ControlsAreDescribedWhereTheyAre)
{
    const std::vector<AccessibleControl> controls = view().accessibleControls();
    const std::pair<Point, const char*> expected[]{
        {onHandle, "Move"}, {onClose, "Close"}, {onSettings, "Settings"}, {onRecord, "Record"}, {onResize, "Resize"}};
    ASSERT_EQ(controls.size(), std::size(expected));
    for (std::size_t i = 0; i < controls.size(); ++i) {
        EXPECT_EQ(controls[i].name, expected[i].second);
        EXPECT_EQ(controls[i].frame.midX(), expected[i].first.x) << controls[i].name;
        EXPECT_TRUE(pointerIsIn(controls[i].frame, expected[i].first)) << controls[i].name;
    }
}

TEST_F(RegionOverlayViewTest, DescribedButtonsDoWhatAClickDoes)
{
    for (const AccessibleControl& control : view().accessibleControls()) {
        if (control.press)
            control.press();
    }
    EXPECT_EQ(events, (std::vector<std::string>{"close", "settings", "record"}));
}

} // namespace
} // namespace nimbrale
