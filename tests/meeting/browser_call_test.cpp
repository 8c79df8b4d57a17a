#include "tests/support/browser_call.h"
#include "tests/support/image_compare.h"
#include "tests/support/scene.h"

#include <gtest/gtest.h>

namespace nimbrale::test {

namespace {

/// The browser and the call without the application: a monitor set by hand, with a window on it.
class BrowserCallTest : public testing::Test {
protected:
    void SetUp() override
    {
        std::string reason;
        desktop_ = PrivateDesktop::start({.windowManager = PrivateDesktop::WindowManager::openbox}, reason);
        if (!desktop_)
            GTEST_SKIP() << reason;
        desktop_->run("xrandr", {"--output", "VNC-0", "--primary"});
        ASSERT_TRUE(desktop_->resizeScreen({1280 + 640, 720}));
        desktop_->setMonitor("Beside", {1280, 0, 640, 400});
        scene_ = Scene::start(*desktop_);
        ASSERT_TRUE(scene_);
        scene_->add("shared", {.geometry = {1280, 0, 640, 400}, .seed = 5});
        call_ = BrowserCall::start(*desktop_, {}, reason);
        if (!call_)
            GTEST_SKIP() << reason;
    }

    std::unique_ptr<PrivateDesktop> desktop_;
    std::unique_ptr<Scene> scene_;
    std::unique_ptr<BrowserCall> call_;
};

TEST_F(BrowserCallTest, BringsTheSharedScreenToTheFarSide)
{
    const auto moving = desktop_->spawn("nimbrale_animation", {"blink", "1280", "0", "60", "60", "30", "0"});
    ASSERT_TRUE(call_->share()) << call_->failure();
    EXPECT_EQ(call_->state().surface, "monitor");
    EXPECT_TRUE(call_->waitForTrackSize({640, 400}, Milliseconds{3000}));
    EXPECT_TRUE(call_->waitForChangesReceived(60, Milliseconds{10000}));
    EXPECT_EQ(call_->state().received.size, QSize(640, 400));

    const QRect still(70, 76, 480, 290);
    const QImage colours = Scene::pattern(5, {640, 400}).copy(still);
    EXPECT_TRUE(imagesMatch(call_->trackImage(still), colours, {.perChannel = 4, .edgeDistance = 2}));
    EXPECT_TRUE(imagesMatch(call_->receivedImage(still), colours, {.perChannel = 24, .edgeDistance = 2}));

    scene_->repaint("shared", 5 | greyPattern);
    ASSERT_TRUE(call_->waitForChangesReceived(60, Milliseconds{10000}));
    const QImage greys = Scene::pattern(5 | greyPattern, {640, 400}).copy(still);
    EXPECT_TRUE(imagesMatch(call_->trackImage(still), greys, {.perChannel = 2}));
    EXPECT_TRUE(imagesMatch(call_->receivedImage(still), greys, {.perChannel = 16}));
}

TEST_F(BrowserCallTest, AFrozenStreamIsNoticed)
{
    ASSERT_TRUE(call_->share()) << call_->failure();
    sleepFor(Milliseconds{2000});
    EXPECT_FALSE(call_->waitForChangesReceived(5, Milliseconds{4000}));
    EXPECT_EQ(call_->state().phase, "sharing") << "the page is there, so that it is the stream that stands still";
}

TEST_F(BrowserCallTest, FindsTheMarkerInASingleFrame)
{
    scene_->repaint("shared", 0);
    scene_->fill("shared", {0, 0, 640, 400}, QColor(20, 120, 40));
    const auto moving = desktop_->spawn("nimbrale_animation", {"blink", "1280", "0", "60", "60", "30", "0"});
    ASSERT_TRUE(call_->share()) << call_->failure();
    ASSERT_TRUE(call_->waitForTrackSize({640, 400}, Milliseconds{3000}));
    call_->watchForMarker();
    ASSERT_TRUE(call_->waitForFramesReceived(60, Milliseconds{10000}));
    const BrowserCall::MarkerReport before = call_->markerReport();
    EXPECT_GT(before.received.looked, 50);
    EXPECT_GT(before.shared.looked, 50);
    EXPECT_EQ(before.shared.found, 0);
    EXPECT_EQ(before.received.found, 0);

    scene_->fill("shared", {300, 200, 40, 5}, QColor(255, 0, 255));
    sleepFor(Milliseconds{70});
    scene_->fill("shared", {300, 200, 40, 5}, QColor(20, 120, 40));
    ASSERT_TRUE(call_->waitForFramesReceived(30, Milliseconds{10000}));
    const BrowserCall::MarkerReport after = call_->markerReport();
    EXPECT_GT(after.shared.found, 0);
    EXPECT_GT(after.received.found, 0);
    EXPECT_LT(after.shared.found, 10);
    EXPECT_EQ(after.shared.unreadable + after.received.unreadable, 0);
}

} // namespace

} // namespace nimbrale::test
