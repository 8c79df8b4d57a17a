// When the words for a control come and go, and where they stand.

#include "controls/control_tip.h"

#include "tests/fakes/fake_platform.h"
#include "tests/fakes/offscreen_application.h"

#include <gtest/gtest.h>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;

constexpr Rect screen{0, 0, 1000, 800};
constexpr Rect control{500, 400, 22, 22};

TEST(ControlTipPlaceTest, StandsOnTheRightOfTheControlInTheMiddleOfItsHeight)
{
    EXPECT_EQ(controlTipPlace(control, 40, screen), (Rect{530, 399, 60, 24}));
}

TEST(ControlTipPlaceTest, StandsOnTheLeftWhereTheRightHasNoRoom)
{
    EXPECT_EQ(controlTipPlace({930, 400, 22, 22}, 40, screen), (Rect{862, 399, 60, 24}));
}

TEST(ControlTipPlaceTest, StaysOnTheRightWhereItJustFits)
{
    EXPECT_EQ(controlTipPlace({902, 400, 22, 22}, 40, screen).maxX(), 992);
    EXPECT_EQ(controlTipPlace({903, 400, 22, 22}, 40, screen).maxX(), 895);
}

TEST(ControlTipPlaceTest, IsAsWideInWholePoints)
{
    EXPECT_EQ(controlTipPlace(control, 40.5, screen).width, 61);
    EXPECT_EQ(controlTipPlace(control, 40.4, screen).width, 60);
}

TEST(ControlTipPlaceTest, StaysOnTheScreenBesideAControlAtItsTopOrBottom)
{
    EXPECT_EQ(controlTipPlace({500, 790, 22, 10}, 40, screen).maxY(), 800);
    EXPECT_EQ(controlTipPlace({500, 0, 22, 10}, 40, screen).minY(), 0);
}

TEST(ControlTipPlaceTest, IsOnADisplayThatDoesNotBeginAtTheOrigin)
{
    EXPECT_EQ(controlTipPlace({-30, 900, 22, 22}, 40, {-1000, 800, 1000, 600}), (Rect{-98, 899, 60, 24}));
}

class ControlTipTest : public testing::Test {
protected:
    ControlTipTest() { startOffscreenApplication(); }

    [[nodiscard]] FakePanels& panels() { return platform.panels(); }
    [[nodiscard]] bool isSeen() { return !panels().living.empty() && panels().last().order == FakePanel::Order::front; }

    FakePlatform platform;
    ControlTip tip{platform.panels(), platform.mainQueue(), {0, 0, 0, 1}};
};

TEST_F(ControlTipTest, ComesOnceThePointerHasStayed)
{
    tip.pointerCameTo(control, "Close", screen);
    platform.mainQueue().advance(699ms);
    EXPECT_FALSE(isSeen());
    platform.mainQueue().advance(1ms);
    EXPECT_TRUE(isSeen());
    EXPECT_EQ(panels().last().title, "Nimbrale: Close");
}

TEST_F(ControlTipTest, StandsInFrontOfTheFrameAndTakesNoClicks)
{
    tip.pointerCameTo(control, "Close", screen);
    platform.mainQueue().advance(1s);
    EXPECT_GT(panels().last().options.level, panel_level::frame);
    EXPECT_TRUE(panels().last().mouseRegion.empty());
}

TEST_F(ControlTipTest, DoesNotComeForAPointerThatPassesBy)
{
    tip.pointerCameTo(control, "Close", screen);
    platform.mainQueue().advance(500ms);
    tip.dismiss();
    platform.mainQueue().advance(5s);
    EXPECT_TRUE(panels().created.empty());
}

TEST_F(ControlTipTest, OfTheNextControlTakesThePlaceOfTheOneBefore)
{
    tip.pointerCameTo(control, "Close", screen);
    platform.mainQueue().advance(1s);
    tip.pointerCameTo(control, "Settings", screen);
    EXPECT_FALSE(isSeen());
    platform.mainQueue().advance(1s);
    ASSERT_EQ(panels().living.size(), 1U);
    EXPECT_EQ(panels().last().title, "Nimbrale: Settings");
}

TEST_F(ControlTipTest, GoesAtOnceWhenItIsDismissed)
{
    tip.pointerCameTo(control, "Close", screen);
    platform.mainQueue().advance(1s);
    ASSERT_TRUE(isSeen());
    tip.dismiss();
    EXPECT_TRUE(panels().living.empty());
    EXPECT_EQ(panels().orderedOut.size(), 1U);
}

TEST_F(ControlTipTest, HasRoomForItsShadowAroundItsPlace)
{
    tip.pointerCameTo(control, "Close", screen);
    platform.mainQueue().advance(1s);
    const Rect frame = panels().last().frame();
    EXPECT_EQ(frame.midY(), control.midY());
    EXPECT_EQ(frame.height, 44);
    EXPECT_EQ(frame.minX(), control.maxX() + 8 - 10);
}

} // namespace
} // namespace nimbrale
