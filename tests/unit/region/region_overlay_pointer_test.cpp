// When the frame looks at the pointer and when it leaves a resting one alone, and which clicks it takes.

#include "region/region_overlay_window.h"
#include "tests/fakes/fake_platform.h"
#include "tests/fakes/offscreen_application.h"

#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;

const Rect screenFrame{0, 0, 1512, 982};
const Rect regionFrame{300, 200, 640, 400};
constexpr Point onHandle{620, 605};
constexpr Point inside{620, 400};

class RegionOverlayPointerTest : public testing::Test {
protected:
    explicit RegionOverlayPointerTest(bool tellsOfPointer = true)
    {
        startOffscreenApplication();
        screens().list = {makeScreen(1, screenFrame)};
        screens().mouse = inside;
        screens().tellsOfPointer = tellsOfPointer;
        window =
            RegionOverlayWindow::create(platform.panels(), screens(), platform.mainQueue(), screenFrame, regionFrame);
    }

    /// The frame's; a tip comes after it.
    FakePanel& panel() { return *platform.panels().living.at(0); }
    FakeScreens& screens() { return platform.screens(); }
    std::optional<DragZone> hoveredZone() { return window->view().hoveredZone(); }
    void moveTo(Point location)
    {
        screens().mouse = location;
        screens().notifyPointer();
    }
    /// How often the pointer is looked at in a second.
    int looks()
    {
        const int before = screens().mouseQuestions;
        platform.mainQueue().advance(1s);
        return screens().mouseQuestions - before;
    }

    FakePlatform platform;
    std::shared_ptr<RegionOverlayWindow> window;
};

class UntoldRegionOverlayPointerTest : public RegionOverlayPointerTest {
protected:
    UntoldRegionOverlayPointerTest() : RegionOverlayPointerTest(false) {}
};

TEST_F(UntoldRegionOverlayPointerTest, IsLookedAtThirtyTimesASecondWhetherOrNotItRests)
{
    EXPECT_GE(looks(), 29);
    EXPECT_GE(looks(), 29);
}

TEST_F(RegionOverlayPointerTest, RestingIsNotLookedAt)
{
    platform.mainQueue().advance(1s);
    EXPECT_EQ(looks(), 0);
}

TEST_F(RegionOverlayPointerTest, MovingIsLookedAtWithinAThirtiethOfASecond)
{
    platform.mainQueue().advance(1s);
    moveTo(onHandle);
    EXPECT_EQ(hoveredZone(), std::nullopt);
    platform.mainQueue().advance(34ms);
    EXPECT_EQ(hoveredZone(), DragZone::move);
}

TEST_F(RegionOverlayPointerTest, MovingOnIsLookedAtThirtyTimesASecond)
{
    int looks = 0;
    for (int step = 0; step < 20; ++step) {
        const int before = screens().mouseQuestions;
        moveTo({inside.x + step, inside.y});
        platform.mainQueue().advance(50ms);
        looks += screens().mouseQuestions - before;
    }
    EXPECT_GE(looks, 20);
    EXPECT_LE(looks, 31);
}

TEST_F(RegionOverlayPointerTest, ControlsThatMoveUnderARestingPointerAreNoticed)
{
    moveTo(onHandle);
    platform.mainQueue().advance(1s);
    ASSERT_EQ(hoveredZone(), DragZone::move);
    window->setRegionFrame(regionFrame.movedBy(0, -150));
    window->setFrame(window->frameAtRest());
    platform.mainQueue().advance(34ms);
    EXPECT_EQ(hoveredZone(), std::nullopt);
    EXPECT_EQ(looks(), 0) << "rests again";
}

TEST_F(RegionOverlayPointerTest, FrameThatADragLeftElsewhereIsNoticedUnderARestingPointer)
{
    moveTo(onHandle);
    platform.mainQueue().advance(1s);
    ASSERT_EQ(hoveredZone(), DragZone::move);
    window->onChange = [](const Rect& frame, DragZone, bool) {
        return RegionOverlayWindow::Change{
            .frame = frame.movedBy(0, -150), .guides = {}, .label = {}, .screenFrame = std::nullopt};
    };
    panel().press(onHandle);
    panel().dragTo(onHandle);
    platform.mainQueue().advance(1s);
    panel().release(onHandle);
    EXPECT_EQ(hoveredZone(), DragZone::move) << "not looked at yet";
    platform.mainQueue().advance(34ms);
    EXPECT_EQ(hoveredZone(), std::nullopt);
}

TEST_F(RegionOverlayPointerTest, PointerThatLeftAHeldButtonIsNoticedThoughNobodyTold)
{
    const Rect close = window->view().layout().button(FrameButton::close);
    const Point onClose{window->frame().x + close.midX(), window->frame().y + close.midY()};
    moveTo(onClose);
    platform.mainQueue().advance(1s);
    ASSERT_EQ(window->view().hoveredButton(), FrameButton::close);
    panel().press(onClose);
    platform.mainQueue().advance(1s);
    screens().mouse = inside;
    panel().release(inside);
    platform.mainQueue().advance(34ms);
    EXPECT_EQ(window->view().hoveredButton(), std::nullopt);
}

TEST_F(RegionOverlayPointerTest, ClicksAreTakenByThePixelsOfThePanelsScale)
{
    const auto takesClickBesideClose = [&](double dx, double dy) {
        const Rect close = window->view().layout().button(FrameButton::close);
        const Point pointer{close.midX() + dx, close.midY() + dy};
        return std::any_of(panel().mouseRegion.begin(), panel().mouseRegion.end(),
                           [&](const Rect& rect) { return pointerIsIn(rect, pointer); });
    };
    panel().scale = 2;
    panel().onBackingScaleChange();
    // 12.5 and 3.5 are 12.98 away from the middle, 12.5 and 4 are 13.12.
    EXPECT_TRUE(takesClickBesideClose(12.5, 3.5));
    EXPECT_FALSE(takesClickBesideClose(12.5, 4));
    EXPECT_TRUE(takesClickBesideClose(-12.5, -3.5));
    EXPECT_FALSE(takesClickBesideClose(-13, 0.5));
    // Without magnification that place is on the pixel with its corner at 12 and 4, which is 12.65 away.
    panel().scale = 1;
    panel().onBackingScaleChange();
    EXPECT_TRUE(takesClickBesideClose(12.5, 4));
}

TEST_F(RegionOverlayPointerTest, AClosedFrameIsNotWokenByAMove)
{
    platform.mainQueue().advance(1s);
    window->close();
    moveTo(onHandle);
    EXPECT_EQ(looks(), 0);
}

} // namespace
} // namespace nimbrale
