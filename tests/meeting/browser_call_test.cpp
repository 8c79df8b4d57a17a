#include "tests/support/browser_call.h"
#include "tests/support/image_compare.h"
#include "tests/support/requirements.h"
#include "tests/support/scene.h"

#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <xcb/xcb.h>

namespace nimbrale::test {

namespace {

/// The browser and the call without the application: a monitor set by hand, with a window on it.
class BrowserCallTest : public testing::Test {
protected:
    void SetUp() override
    {
        desktop_ = requireDesktop({.windowManager = PrivateDesktop::WindowManager::openbox});
        desktop_->run("xrandr", {"--output", "VNC-0", "--primary"});
        ASSERT_TRUE(desktop_->resizeScreen({1280 + 640, 720}));
        desktop_->setMonitor("Beside", {1280, 0, 640, 400});
        scene_ = requireScene(*desktop_);
        scene_->add("shared", {.geometry = {1280, 0, 640, 400}, .seed = 5});
        std::string reason;
        call_ = BrowserCall::start(*desktop_, {}, reason);
        if (!call_)
            skipTest(reason);
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
    const QImage colors = Scene::pattern(5, {640, 400}).copy(still);
    EXPECT_TRUE(imagesMatch(call_->trackImage(still), colors, {.perChannel = 4, .edgeDistance = 2}));
    EXPECT_TRUE(imagesMatch(call_->receivedImage(still), colors, {.perChannel = 24, .edgeDistance = 2}));

    scene_->repaint("shared", 5 | greyPattern);
    ASSERT_TRUE(call_->waitForChangesReceived(60, Milliseconds{10000}));
    const QImage greys = Scene::pattern(5 | greyPattern, {640, 400}).copy(still);
    EXPECT_TRUE(imagesMatch(call_->trackImage(still), greys, {.perChannel = 2}));
    // The call's codec loses some: one pixel in a thousand may differ by more.
    const int few = still.width() * still.height() / 1000;
    EXPECT_TRUE(imagesMatch(call_->receivedImage(still), greys, {.perChannel = 16, .differingPixels = few}));
}

/// Takes the first click of the desktop's first button away from whoever it is meant for.
class ClickThief {
public:
    explicit ClickThief(const PrivateDesktop& desktop)
        : connection_(xcb_connect(desktop.displayName().c_str(), nullptr)), root_(desktop.screen().root),
          thread_([this] { steal(); })
    {
        xcb_grab_button(connection_, 0, root_, XCB_EVENT_MASK_BUTTON_PRESS, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC,
                        XCB_NONE, XCB_NONE, XCB_BUTTON_INDEX_1, 0);
        free(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
    }
    ~ClickThief()
    {
        isEnding_ = true;
        thread_.join();
        xcb_disconnect(connection_);
    }
    ClickThief(const ClickThief&) = delete;
    ClickThief& operator=(const ClickThief&) = delete;

    [[nodiscard]] int stolen() const { return stolen_; }

private:
    void steal()
    {
        while (!isEnding_) {
            const std::unique_ptr<xcb_generic_event_t, decltype(&free)> event(xcb_poll_for_event(connection_), free);
            if (event && (event->response_type & 0x7f) == XCB_BUTTON_PRESS) {
                ++stolen_;
                xcb_ungrab_button(connection_, XCB_BUTTON_INDEX_1, root_, 0);
                xcb_flush(connection_);
            }
            sleepFor(Milliseconds{2});
        }
    }

    xcb_connection_t* connection_;
    xcb_window_t root_;
    std::atomic<bool> isEnding_ = false;
    std::atomic<int> stolen_ = 0;
    std::thread thread_;
};

TEST_F(BrowserCallTest, AClickThatIsLostIsNoticed)
{
    const ClickThief thief(*desktop_);
    EXPECT_FALSE(call_->share(Milliseconds{3000}));
    EXPECT_EQ(thief.stolen(), 1);
    EXPECT_EQ(call_->state().phase, "idle");
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
