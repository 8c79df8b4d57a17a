#include "platform/x11/server/client_resources.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/server/owned_id.h"
#include "platform/x11/server/window_events.h"
#include "tests/support/requirements.h"

#include <QCoreApplication>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> errorsLogged;

/// One connection of ours and one of another client's.
class X11ServerTest : public testing::Test {
protected:
    void SetUp() override
    {
        desktop = requireDesktop({});
        static int argumentCount = 1;
        static char name[] = "test";
        static char* arguments[] = {name, nullptr};
        application = std::make_unique<QCoreApplication>(argumentCount, arguments);
        connection = std::move(*x11::Connection::open(desktop->displayName()));
        errorsLogged.clear();
        previousHandler = qInstallMessageHandler([](QtMsgType, const QMessageLogContext& context, const QString& text) {
            if (std::string(context.category) == "Nimbrale.x11")
                errorsLogged.push_back(text.toStdString());
        });
    }

    void TearDown() override { qInstallMessageHandler(previousHandler); }

    [[nodiscard]] xcb_window_t makeForeignWindow() const
    {
        xcb_connection_t* const raw = desktop->connection();
        const xcb_window_t window = xcb_generate_id(raw);
        const xcb_screen_t* const screen = xcb_setup_roots_iterator(xcb_get_setup(raw)).data;
        xcb_create_window(raw, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 10, 10, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        roundTrip(raw);
        return window;
    }

    static void roundTrip(xcb_connection_t* raw)
    {
        x11::Reply<xcb_get_input_focus_reply_t>(xcb_get_input_focus_reply(raw, xcb_get_input_focus(raw), nullptr));
    }

    /// Absent for a window that is gone.
    [[nodiscard]] std::optional<std::uint32_t> maskOn(xcb_window_t window) const
    {
        const x11::Reply<xcb_get_window_attributes_reply_t> reply(xcb_get_window_attributes_reply(
            connection->get(), xcb_get_window_attributes(connection->get(), window), nullptr));
        return reply ? std::optional(reply->your_event_mask) : std::nullopt;
    }

    /// Asked by another client.
    [[nodiscard]] bool exists(xcb_drawable_t drawable) const
    {
        xcb_connection_t* const raw = desktop->connection();
        connection->synchronize();
        const x11::Reply<xcb_get_geometry_reply_t> reply(
            xcb_get_geometry_reply(raw, xcb_get_geometry(raw, drawable), nullptr));
        return reply != nullptr;
    }

    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<QCoreApplication> application;
    std::unique_ptr<x11::Connection> connection;
    QtMessageHandler previousHandler = nullptr;
};

TEST_F(X11ServerTest, eventsOfAForeignWindowAddUpAndAreTakenOffAgain)
{
    const xcb_window_t window = makeForeignWindow();
    EXPECT_EQ(maskOn(window), 0U);
    auto properties = std::make_unique<x11::WindowEvents>(*connection, window, XCB_EVENT_MASK_PROPERTY_CHANGE);
    x11::WindowEvents both(*connection, window, XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY);
    EXPECT_EQ(maskOn(window), XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY);
    x11::WindowEvents moved = std::move(both);
    EXPECT_EQ(maskOn(window), XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY);
    moved = {};
    EXPECT_EQ(maskOn(window), XCB_EVENT_MASK_PROPERTY_CHANGE);
    properties.reset();
    EXPECT_EQ(maskOn(window), 0U);
}

TEST_F(X11ServerTest, eventsOfAWindowThatIsGoneAreNoError)
{
    x11::EventDispatcher events(*connection, [] {});
    const xcb_window_t window = makeForeignWindow();
    x11::WindowEvents owner(*connection, window, XCB_EVENT_MASK_PROPERTY_CHANGE);
    EXPECT_EQ(maskOn(window), XCB_EVENT_MASK_PROPERTY_CHANGE);
    xcb_destroy_window(desktop->connection(), window);
    roundTrip(desktop->connection());
    EXPECT_FALSE(maskOn(window));
    owner = {};
    connection->synchronize();
    events.dispatch();
    EXPECT_THAT(errorsLogged, ElementsAre());
    // What such an error would have come to.
    xcb_destroy_window(connection->get(), window);
    connection->synchronize();
    events.dispatch();
    EXPECT_THAT(errorsLogged, ElementsAre(HasSubstr("request 4.0")));
}

TEST_F(X11ServerTest, ownersGiveBackWhatTheyOwnOnce)
{
    x11::EventDispatcher events(*connection, [] {});
    x11::OwnedPixmap owner(*connection, connection->newId());
    const xcb_pixmap_t first = owner.get();
    xcb_create_pixmap(connection->get(), connection->screen().root_depth, first, connection->root(), 8, 8);
    ASSERT_TRUE(exists(first));
    {
        const x11::OwnedPixmap moved = std::move(owner);
        EXPECT_FALSE(owner);
        EXPECT_TRUE(exists(first));
    }
    EXPECT_FALSE(exists(first));

    x11::OwnedPixmap second(*connection, connection->newId());
    xcb_create_pixmap(connection->get(), connection->screen().root_depth, second.get(), connection->root(), 8, 8);
    const xcb_pixmap_t replaced = second.get();
    second = x11::OwnedPixmap(*connection, connection->newId());
    xcb_create_pixmap(connection->get(), connection->screen().root_depth, second.get(), connection->root(), 8, 8);
    EXPECT_FALSE(exists(replaced));
    const xcb_pixmap_t kept = second.release();
    EXPECT_FALSE(second);
    EXPECT_TRUE(exists(kept));
    xcb_free_pixmap(connection->get(), kept);
    connection->synchronize();
    events.dispatch();
    EXPECT_THAT(errorsLogged, ElementsAre());
}

TEST_F(X11ServerTest, whatAWindowTookAlongMayBeGivenBackAgain)
{
    x11::EventDispatcher events(*connection, [] {});
    x11::OwnedWindow window(*connection, connection->newId());
    xcb_create_window(connection->get(), XCB_COPY_FROM_PARENT, window.get(), connection->root(), 0, 0, 10, 10, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
    x11::OwnedWindowPicture picture(*connection, connection->newId());
    xcb_render_create_picture(connection->get(), picture.get(), window.get(), connection->rootFormat(), 0, nullptr);
    x11::OwnedWindowDamage damage(*connection, connection->newId());
    xcb_damage_create(connection->get(), damage.get(), window.get(), XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
    ASSERT_TRUE(exists(window.get()));
    xcb_destroy_window(desktop->connection(), window.get());
    roundTrip(desktop->connection());
    ASSERT_FALSE(exists(window.get()));
    picture.reset();
    damage.reset();
    window.reset();
    connection->synchronize();
    events.dispatch();
    EXPECT_THAT(errorsLogged, ElementsAre());
}

TEST_F(X11ServerTest, clientsThatComeAndGoAreCounted)
{
    const xcb_atom_t hideCount = connection->atom("XFixesCursorHideCount");
    x11::ClientCensus census(*connection);
    const auto hiders = [&] {
        const auto clients = census.take();
        return std::count_if(clients.begin(), clients.end(),
                             [&](const x11::ClientResources& client) { return client.has(hideCount); });
    };
    const auto hide = [&] {
        auto program = std::move(*x11::Connection::open(desktop->displayName()));
        xcb_xfixes_hide_cursor(program->get(), program->root());
        program->synchronize();
        return program;
    };
    EXPECT_EQ(hiders(), 0);
    const auto first = hide();
    EXPECT_EQ(hiders(), 1) << "one that came since the last time";
    EXPECT_EQ(hiders(), 1) << "one that was there the last time";
    auto second = hide();
    EXPECT_EQ(hiders(), 2);
    xcb_xfixes_show_cursor(first->get(), first->root());
    first->synchronize();
    EXPECT_EQ(hiders(), 1) << "one that was there and has changed";
    second.reset();
    EXPECT_TRUE(waitUntil([&] { return hiders() == 0; }, Milliseconds{2000})) << "one that has ended";
    EXPECT_TRUE(errorsLogged.empty());
}

} // namespace

} // namespace nimbrale::test
