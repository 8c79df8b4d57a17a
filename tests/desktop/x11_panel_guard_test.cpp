// Panels whose windows other clients touch, alone and under a window manager.

#include "tests/desktop/panel_test.h"

namespace nimbrale::test {

namespace {

class X11PanelGuardTest : public X11PanelTest {
protected:
    /// The other client does it, and has done it when this returns.
    void unmap(xcb_window_t window)
    {
        xcb_unmap_window(desktop->connection(), window);
        desktop->synchronize();
    }

    [[nodiscard]] std::uint8_t mapStateOf(xcb_window_t window)
    {
        xcb_connection_t* const raw = desktop->connection();
        const x11::Reply<xcb_get_window_attributes_reply_t> reply(
            xcb_get_window_attributes_reply(raw, xcb_get_window_attributes(raw, window), nullptr));
        return reply ? reply->map_state : std::uint8_t{XCB_MAP_STATE_UNMAPPED};
    }
};

TEST_F(X11PanelGuardTest, aDragThatIsBrokenOffEndsOutsideOfThePanelAndTheNextOneWorks)
{
    startDesktop({});
    const auto panel = showFrame();
    std::string seen;
    MouseEvent last;
    const auto note = [&](char kind) {
        return [&, kind](const MouseEvent& event) {
            seen += kind;
            last = event;
        };
    };
    panel->onMouseDown = note('d');
    panel->onMouseUp = note('u');
    desktop->movePointer({122, 102});
    desktop->pressButton();
    ASSERT_TRUE(host->pumpUntil([&] { return seen == "d"; }));
    unmap(host->ownWindowsInOrder().front());
    EXPECT_TRUE(host->pumpUntil([&] { return seen == "du"; }));
    EXPECT_LT(last.locationInPanel.x, 0);
    EXPECT_LT(last.locationInPanel.y, 0);
    desktop->releaseButton();
    ASSERT_TRUE(host->pumpUntil([&] { return desktop->pixel(122, 102) == yellow; }));
    EXPECT_EQ(seen, "du");
    desktop->click({122, 102});
    EXPECT_TRUE(host->pumpUntil([&] { return seen == "dudu"; })) << seen;
    EXPECT_EQ(last.locationInPanel, (Point{22, 178}));
}

TEST_F(X11PanelGuardTest, aDestroyedPanelKeepsItsTitleCursorLevelAndMouseRegion)
{
    startScene({});
    scene->add("below", {.geometry = {0, 0, 600, 400}});
    const auto front = host->makePanel({110, 90, 40, 40}, PanelStyle::overlay, panel_level::frame + 1);
    front->rootLayer().setBackgroundColor(Color{1, 0, 0, 1});
    front->orderFront();
    const auto panel = showFrame();
    panel->setTitle("Frame");
    panel->setMouseRegion({{20, 175, 10, 5}});
    int presses = 0;
    panel->onMouseDown = [&](const MouseEvent&) { ++presses; };
    host->pump();
    const std::vector<xcb_window_t> before = host->ownWindowsInOrder();
    ASSERT_EQ(before.size(), 2U);
    xcb_destroy_window(desktop->connection(), before[1]);
    desktop->synchronize();
    ASSERT_TRUE(host->pumpUntil([&] { return host->ownWindowsInOrder().size() == 2; }));
    const std::vector<xcb_window_t> after = host->ownWindowsInOrder();
    EXPECT_EQ(after[0], before[0]) << "still in front";
    EXPECT_NE(after[1], before[1]);
    EXPECT_EQ(property(after[1], "_NET_WM_NAME", "UTF8_STRING"), "Frame");
    // Right of the front one.
    ASSERT_TRUE(host->pumpUntil([&] { return desktop->pixel(200, 102) == yellow; }));
    front->orderOut();
    ASSERT_TRUE(host->pumpUntil([&] { return desktop->pixel(122, 102) == yellow; }));
    desktop->click({122, 102});
    EXPECT_TRUE(host->pumpUntil([&] { return presses == 1; }));
    desktop->click({250, 102});
    EXPECT_TRUE(host->pumpUntil([&] { return scene->pressCount("below") == 1; }));
    EXPECT_EQ(presses, 1);
}

TEST_F(X11PanelGuardTest, aHiddenPanelStaysHidden)
{
    startDesktop({});
    const auto panel = showFrame();
    const xcb_window_t window = host->ownWindowsInOrder().front();
    panel->orderOut();
    host->pumpFor(Milliseconds{200});
    EXPECT_EQ(mapStateOf(window), XCB_MAP_STATE_UNMAPPED);
    xcb_destroy_window(desktop->connection(), window);
    desktop->synchronize();
    host->pumpFor(Milliseconds{200});
    EXPECT_EQ(desktop->pixel(122, 102), background);
    panel->orderFront();
    EXPECT_TRUE(host->pumpUntil([&] { return desktop->pixel(122, 102) == yellow; }));
}

TEST_F(X11PanelGuardTest, theMirrorWindowComesBackUnlessTheUserMadeItSmall)
{
    startScene({.windowManager = PrivateDesktop::WindowManager::openbox});
    const auto mirror = host->makePanel({100, 100, 300, 200}, PanelStyle::mirrorWindow, 0, "Mirror");
    mirror->rootLayer().setBackgroundColor(Color{1, 0, 0, 1});
    mirror->orderBack();
    const auto isSeen = [&] { return desktop->pixel(200, 200) == QColor(Qt::red); };
    ASSERT_TRUE(host->pumpUntil(isSeen));
    xcb_window_t window = XCB_NONE;
    ASSERT_TRUE(host->pumpUntil([&] { return (window = clientWithTitle("Mirror")) != XCB_NONE; }));
    unmap(window);
    EXPECT_TRUE(host->pumpUntil([&] { return clientWithTitle("Mirror") == window && isSeen(); }));

    // As a click on the minimize button of a list of windows does.
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window;
    message.type = host->connection->atom("WM_CHANGE_STATE");
    constexpr std::uint32_t iconicState = 3;
    message.data.data32[0] = iconicState;
    xcb_send_event(desktop->connection(), 0, desktop->screen().root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&message));
    desktop->synchronize();
    EXPECT_TRUE(host->pumpUntil([&] { return !isSeen(); }));
    EXPECT_FALSE(host->pumpUntil(isSeen, Milliseconds{500}));

    xcb_destroy_window(desktop->connection(), window);
    desktop->synchronize();
    EXPECT_TRUE(host->pumpUntil(isSeen));
}

} // namespace

} // namespace nimbrale::test
