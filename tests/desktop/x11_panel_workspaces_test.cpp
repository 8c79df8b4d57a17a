// Panels on a desktop of several workspaces: they are on all of them.

#include "tests/desktop/panel_test.h"

namespace nimbrale::test {

namespace {

using WindowManager = PrivateDesktop::WindowManager;

class X11PanelWorkspacesTest : public X11PanelTest, public testing::WithParamInterface<WindowManager> {
protected:
    /// Asks the window manager, as a pager does.
    void askManager(const std::string& message, std::uint32_t value)
    {
        xcb_client_message_event_t event{};
        event.response_type = XCB_CLIENT_MESSAGE;
        event.format = 32;
        event.window = desktop->screen().root;
        event.type = host->connection->atom(message);
        event.data.data32[0] = value;
        event.data.data32[1] = desktop->serverTime();
        xcb_send_event(desktop->connection(), 0, desktop->screen().root,
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&event));
        desktop->synchronize();
    }

    [[nodiscard]] std::uint32_t rootNumber(const std::string& property)
    {
        const auto values = words(desktop->screen().root, property, "CARDINAL");
        return values.empty() ? 0 : values.front();
    }
};

INSTANTIATE_TEST_SUITE_P(WindowManagers, X11PanelWorkspacesTest,
                         testing::Values(WindowManager::openbox, WindowManager::xfwm4), [](const auto& manager) {
                             return manager.param == WindowManager::openbox ? "openbox" : "xfwm4";
                         });

TEST_P(X11PanelWorkspacesTest, theFrameIsOnEveryWorkspaceInFrontOfItsWindows)
{
    startScene({.windowManager = GetParam()});
    constexpr std::uint32_t count = 3;
    askManager("_NET_NUMBER_OF_DESKTOPS", count);
    ASSERT_TRUE(host->pumpUntil([&] { return rootNumber("_NET_NUMBER_OF_DESKTOPS") == count; }));
    askManager("_NET_CURRENT_DESKTOP", 0);
    ASSERT_TRUE(host->pumpUntil([&] { return rootNumber("_NET_CURRENT_DESKTOP") == 0; }));

    const auto panel = showFrame();
    const auto isFrameSeen = [&] { return desktop->pixel(100 + 22, 80 + 100) == yellow; };
    ASSERT_TRUE(host->pumpUntil(isFrameSeen));
    const QColor colors[count] = {Qt::red, Qt::green, Qt::blue};
    const auto isWindowSeen = [&](std::uint32_t workspace) { return desktop->pixel(250, 180) == colors[workspace]; };
    for (std::uint32_t workspace = 0; workspace < count; ++workspace) {
        askManager("_NET_CURRENT_DESKTOP", workspace);
        ASSERT_TRUE(host->pumpUntil([&] { return rootNumber("_NET_CURRENT_DESKTOP") == workspace; }));
        scene->add("window" + std::to_string(workspace),
                   {.geometry = {60, 60, 400, 300}, .seed = 0, .color = colors[workspace], .overrideRedirect = false});
        ASSERT_TRUE(host->pumpUntil([&] { return isWindowSeen(workspace); }));
        EXPECT_TRUE(host->pumpUntil(isFrameSeen)) << "workspace " << workspace;
    }
    for (std::uint32_t workspace = 0; workspace < count; ++workspace) {
        askManager("_NET_CURRENT_DESKTOP", workspace);
        ASSERT_TRUE(host->pumpUntil([&] { return isWindowSeen(workspace); }))
            << "each window is on its own workspace alone";
        EXPECT_TRUE(host->pumpUntil(isFrameSeen)) << "workspace " << workspace;
    }
}

} // namespace

} // namespace nimbrale::test
