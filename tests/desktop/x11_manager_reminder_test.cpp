// What compositing managers are told once more of what was drawn last.

#include "platform/x11/server/connection.h"
#include "platform/x11/server/events.h"
#include "platform/x11/server/manager_reminder.h"
#include "platform/x11/server/owned_id.h"
#include "platform/x11/server/window_events.h"
#include "tests/desktop/paint_watch.h"
#include "tests/fakes/fake_main_queue.h"
#include "tests/support/requirements.h"

#include <gtest/gtest.h>
#include <memory>
#include <optional>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;

constexpr QRect place(100, 80, 60, 40);

class X11ManagerReminderTest : public testing::Test {
protected:
    void SetUp() override
    {
        desktop = requireDesktop({});
        connection = std::move(*x11::Connection::open(desktop->displayName()));
        xcb_connection_t* const raw = connection->get();
        window = x11::OwnedWindow(*connection, connection->newId());
        const std::uint32_t none = XCB_BACK_PIXMAP_NONE;
        xcb_create_window(raw, XCB_COPY_FROM_PARENT, window.get(), connection->root(), place.x(), place.y(),
                          place.width(), place.height(), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_BACK_PIXMAP, &none);
        xcb_map_window(raw, window.get());
        connection->synchronize();
        drawn.emplace(std::move(*x11::Connection::open(desktop->displayName())), place.adjusted(10, 5, -40, -30));
        beside.emplace(std::move(*x11::Connection::open(desktop->displayName())), place.adjusted(20, 10, 0, 0));
        reminder.emplace(*connection, queue, window.get());
        ASSERT_FALSE(isReported()) << "the control: nobody draws";
    }

    [[nodiscard]] bool isReported()
    {
        connection->synchronize();
        return drawn->takePainted();
    }

    static inline const x11::PixelRegion part{10, 5, 10, 5};
    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<x11::Connection> connection;
    x11::OwnedWindow window;
    FakeMainQueue queue;
    std::optional<PaintWatch> drawn;
    std::optional<PaintWatch> beside;
    std::optional<x11::ManagerReminder> reminder;
};

TEST_F(X11ManagerReminderTest, WhatWasDrawnIsReportedTwiceMore)
{
    reminder->drawn(part);
    queue.advance(99ms);
    EXPECT_FALSE(isReported());
    queue.advance(1ms);
    EXPECT_TRUE(isReported());
    queue.advance(499ms);
    EXPECT_FALSE(isReported());
    queue.advance(1ms);
    EXPECT_TRUE(isReported());
    queue.advance(10s);
    EXPECT_FALSE(isReported()) << "and no more";
    EXPECT_FALSE(beside->takePainted()) << "nothing but what was drawn";
}

TEST_F(X11ManagerReminderTest, AManagerThatSleepsOverTheReportHearsOfAProperty)
{
    const auto manager = std::move(*x11::Connection::open(desktop->displayName()));
    const x11::WindowEvents properties(*manager, window.get(), XCB_EVENT_MASK_PROPERTY_CHANGE);
    manager->synchronize();
    const auto changes = [&] {
        connection->synchronize();
        manager->synchronize();
        int count = 0;
        while (const x11::Reply<xcb_generic_event_t> event{xcb_poll_for_event(manager->get())})
            count += x11::eventType(*event) == XCB_PROPERTY_NOTIFY;
        return count;
    };
    reminder->drawn(part);
    EXPECT_EQ(changes(), 0);
    queue.advance(100ms);
    EXPECT_EQ(changes(), 1);
    queue.advance(500ms);
    EXPECT_EQ(changes(), 1);
}

TEST_F(X11ManagerReminderTest, NothingIsReportedWhileMoreIsDrawn)
{
    for (int step = 0; step < 20; ++step) {
        reminder->drawn(part);
        queue.advance(90ms);
        ASSERT_FALSE(isReported());
    }
    queue.advance(10ms);
    EXPECT_TRUE(isReported());
}

TEST_F(X11ManagerReminderTest, AWindowThatShowsNothingAnyMoreIsNotReported)
{
    reminder->drawn(part);
    reminder->stop();
    queue.advance(10s);
    EXPECT_FALSE(isReported());
}

} // namespace
} // namespace nimbrale::test
