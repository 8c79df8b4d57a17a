// When the frame looks at the pointer, and when it leaves a resting one alone.

#include "region/region_overlay_window.h"
#include "tests/fakes/fake_platform.h"
#include "tests/fakes/offscreen_application.h"

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
    explicit RegionOverlayPointerTest(bool tellsOfMouse = true)
    {
        startOffscreenApplication();
        screens().list = {makeScreen(1, screenFrame)};
        screens().mouse = inside;
        screens().tellsOfMouse = tellsOfMouse;
        window =
            RegionOverlayWindow::create(platform.panels(), screens(), platform.mainQueue(), screenFrame, regionFrame);
    }

    FakeScreens& screens() { return platform.screens(); }
    std::optional<DragZone> hoveredZone() { return window->view().hoveredZone(); }
    void moveTo(Point location)
    {
        screens().mouse = location;
        screens().notifyMouse();
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
    EXPECT_TRUE(window->isWatchingPointer());
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
    EXPECT_EQ(looks(), 1) << "rests again";
}

TEST_F(RegionOverlayPointerTest, AClosedFrameIsNotWokenByAMove)
{
    platform.mainQueue().advance(1s);
    window->close();
    moveTo(onHandle);
    EXPECT_EQ(looks(), 0);
    EXPECT_FALSE(window->isWatchingPointer());
}

} // namespace
} // namespace nimbrale
