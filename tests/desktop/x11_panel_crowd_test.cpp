// Panels among tens of thousands of windows of another program that are not shown: what they ask the server for does
// not grow with those, since the picture that is shared waits on the same thread.

#include "tests/desktop/crowd.h"
#include "tests/desktop/panel_test.h"
#include "tests/support/request_counter.h"

#include <chrono>

namespace nimbrale::test {
namespace {

/// Enough for one wait for each to take seconds, with the server so far away.
constexpr int smallCrowd = 2000;
constexpr Milliseconds farAway{2};

class X11PanelCrowdTest : public X11PanelTest {
protected:
    /// How many requests the panels' connection has sent.
    [[nodiscard]] std::uint32_t requests() { return xcb_no_operation(host->connection->get()).sequence; }
    [[nodiscard]] bool isFrameShown() { return desktop->pixel(100 + 22, 80 + 22) == yellow; }
};

TEST_F(X11PanelCrowdTest, comeBackToTheFrontWithoutAQuestionForEachWindow)
{
    startScene({});
    const auto panel = showFrame();
    host->pumpFor(Milliseconds{300});
    scene->add("above", {.geometry = {100, 80, 400, 300}, .seed = 0, .color = Qt::white, .isMapped = false});
    Crowd crowd(*desktop);
    crowd.add(40000);
    host->pumpFor(Milliseconds{300});
    const std::uint32_t before = requests();
    scene->map("above");
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(300, 200) == QColor(Qt::white) && isFrameShown(); },
                                Milliseconds{10000}));
    // Each look at the screen is a request as well.
    EXPECT_LT(requests() - before, 2000U);
}

TEST_F(X11PanelCrowdTest, startWithoutAWaitForEachWindow)
{
    startDesktop({});
    host.reset();
    Crowd crowd(*desktop);
    crowd.add(smallCrowd);
    const auto counter = RequestCounter::start(desktop->displayName());
    ASSERT_TRUE(counter);
    counter->delayRequests(farAway);
    const auto start = std::chrono::steady_clock::now();
    PanelHost farHost(counter->displayName());
    EXPECT_LT(std::chrono::steady_clock::now() - start, Milliseconds{2000});
    EXPECT_GT(counter->total(), smallCrowd) << "the control: each was asked about";
}

TEST_F(X11PanelCrowdTest, giveWayToALockerWithoutAWaitForEachWindow)
{
    startDesktop({});
    host.reset();
    const auto counter = RequestCounter::start(desktop->displayName());
    ASSERT_TRUE(counter);
    host = std::make_unique<PanelHost>(counter->displayName());
    const auto panel = showFrame();
    xcb_connection_t* const raw = desktop->connection();
    const xcb_window_t locker = xcb_generate_id(raw);
    const std::uint32_t values[] = {0, 1};
    xcb_create_window(raw, XCB_COPY_FROM_PARENT, locker, desktop->screen().root, 0, 0, 1280, 720, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT,
                      values);
    desktop->synchronize();
    Crowd crowd(*desktop);
    crowd.add(smallCrowd);
    host->pumpFor(Milliseconds{300});
    counter->delayRequests(farAway);
    xcb_map_window(raw, locker);
    const x11::Reply<xcb_grab_keyboard_reply_t> grab(xcb_grab_keyboard_reply(
        raw, xcb_grab_keyboard(raw, 0, locker, XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC), nullptr));
    ASSERT_TRUE(grab && grab->status == XCB_GRAB_STATUS_SUCCESS);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(host->pumpUntil([&] { return host->panels->sessionLock().isLocked(); }));
    EXPECT_LT(std::chrono::steady_clock::now() - start, Milliseconds{2000});
    EXPECT_FALSE(isFrameShown());
}

} // namespace
} // namespace nimbrale::test
