// Windows and workspaces that a window manager puts on the virtual display, where nobody at this computer sees them.

#include "tests/desktop/virtual_display_fixture.h"
#include "tests/support/window_requests.h"

#include <gtest/gtest.h>

namespace nimbrale::test {

namespace {

using WindowManager = PrivateDesktop::WindowManager;

class StrayWindowsTest : public VirtualDisplayTest {
protected:
    static constexpr QRect display{0, 0, 1280, 720};
    static constexpr QRect virtualDisplay{1280, 720, 800, 600};

    /// The virtual display is there once the window manager has heard of it.
    void startOn(WindowManager manager, PrivateDesktop::Server server = PrivateDesktop::Server::xvnc)
    {
        start({.server = server, .width = 1280, .height = 720, .windowManager = manager});
        scene_ = requireScene(*desktop_);
        device_ = make(800, 600);
        ASSERT_TRUE(DisplaysHost::pumpUntil([&] { return isWhole({1280, 720, 800, 600}); }));
        device_->onWindowReturned = [this] { ++returned_; };
        DisplaysHost::pumpFor(Milliseconds{300});
    }

    void addWindow(const std::string& title)
    {
        scene_->add(title, {.geometry = {100, 100, 300, 200}, .seed = 1, .overrideRedirect = false});
        ASSERT_TRUE(waitUntil([&] { return isOn(display, title); }, Milliseconds{3000}))
            << "a window opens where the user is";
    }

    /// While nothing runs here that could bring it back.
    [[nodiscard]] bool isPutOn(const QRect& place, const std::string& title) const
    {
        return waitUntil([&] { return isOn(place, title); }, Milliseconds{2000});
    }
    [[nodiscard]] bool comesTo(const QRect& place, const std::string& title) const
    {
        return DisplaysHost::pumpUntil([&] { return isOn(place, title); });
    }
    [[nodiscard]] bool isOn(const QRect& place, const std::string& title) const
    {
        const auto window = desktop_->windowTitled(title);
        return window && place.contains(window->center());
    }

    [[nodiscard]] WindowRequests requests() const { return WindowRequests(*desktop_); }

    std::unique_ptr<Scene> scene_;
    std::unique_ptr<VirtualDisplayDevice> device_;
    int returned_ = 0;
};

TEST_F(StrayWindowsTest, AWindowThatI3PutsThereComesBack)
{
    startOn(WindowManager::i3);
    ASSERT_EQ(requests().workspaceCount(), 2U) << "i3 gives each monitor a workspace";
    addWindow("stray");
    requests().moveToWorkspace(scene_->identifier("stray"), 1);
    ASSERT_TRUE(isPutOn(virtualDisplay, "stray")) << "the control: it would be lost";
    EXPECT_TRUE(comesTo(display, "stray"));
    EXPECT_EQ(returned_, 1);
}

TEST_F(StrayWindowsTest, TheWorkspaceThatI3ShowsThereIsLeftAtOnce)
{
    startOn(WindowManager::i3);
    ASSERT_EQ(requests().currentWorkspace(), 0U);
    requests().switchToWorkspace(1);
    ASSERT_TRUE(waitUntil([&] { return requests().currentWorkspace() == 1U; }, Milliseconds{2000}))
        << "the control: it would stay";
    EXPECT_TRUE(DisplaysHost::pumpUntil([&] { return requests().currentWorkspace() == 0U; }));
    addWindow("next");
    EXPECT_EQ(returned_, 0);
}

TEST_F(StrayWindowsTest, AWindowThatAwesomePutsThereComesBack)
{
    startOn(WindowManager::awesome, PrivateDesktop::Server::xorgDummy);
    ASSERT_EQ(requests().workspaceCount(), 18U) << "awesome gives each monitor nine";
    addWindow("stray");
    requests().moveToWorkspace(scene_->identifier("stray"), 9);
    ASSERT_TRUE(isPutOn(virtualDisplay, "stray")) << "the control: it would be lost";
    EXPECT_TRUE(comesTo(display, "stray"));
    EXPECT_EQ(returned_, 1);
}

TEST_F(StrayWindowsTest, BspwmGivesItNoWorkspace)
{
    for (const auto server : {PrivateDesktop::Server::xvnc, PrivateDesktop::Server::xorgDummy}) {
        startOn(WindowManager::bspwm, server);
        EXPECT_EQ(requests().workspaceCount(), 2U) << "the user's own";
        addWindow("next");
        DisplaysHost::pumpFor(Milliseconds{500});
        EXPECT_TRUE(isOn(display, "next"));
        EXPECT_EQ(returned_, 0);
        device_.reset();
        scene_.reset();
    }
}

TEST_F(StrayWindowsTest, AWindowThatIsMovedThereOnAnOrdinaryDesktopComesBack)
{
    startOn(WindowManager::openbox);
    addWindow("stray");
    scene_->move("stray", {1400, 800});
    ASSERT_TRUE(isPutOn(virtualDisplay, "stray")) << "the control: it would be lost";
    EXPECT_TRUE(comesTo(display, "stray"));
    EXPECT_EQ(returned_, 1);
}

TEST_F(StrayWindowsTest, AWindowOfAllWorkspacesComesBackAsOne)
{
    startOn(WindowManager::openbox);
    addWindow("stray");
    const xcb_window_t window = scene_->identifier("stray");
    const auto isOnAll = [&] {
        const xcb_atom_t workspace = host_->connection->atom("_NET_WM_DESKTOP");
        return host_->connection->property32(window, workspace, XCB_ATOM_CARDINAL) == 0xffffffff;
    };
    requests().showOnAllWorkspaces(window);
    ASSERT_TRUE(waitUntil(isOnAll, Milliseconds{2000}));
    scene_->move("stray", {1400, 800});
    ASSERT_TRUE(isPutOn(virtualDisplay, "stray")) << "the control: it would be lost";
    EXPECT_TRUE(comesTo(display, "stray"));
    EXPECT_TRUE(isOnAll());
    EXPECT_EQ(returned_, 1);
}

TEST_F(StrayWindowsTest, AWindowThatReachesOverADisplaysEdgeStays)
{
    startOn(WindowManager::openbox);
    addWindow("near");
    scene_->move("near", {1100, 600});
    ASSERT_TRUE(
        waitUntil([&] { return desktop_->windowTitled("near")->right() > display.right(); }, Milliseconds{2000}));
    const auto place = desktop_->windowTitled("near");
    DisplaysHost::pumpFor(Milliseconds{500});
    EXPECT_EQ(desktop_->windowTitled("near"), place);
    EXPECT_EQ(returned_, 0);
}

} // namespace

} // namespace nimbrale::test
