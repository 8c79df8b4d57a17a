// Panels and screen lockers: nothing of ours lies over a locked screen, and nothing else makes panels give way.

#include "tests/desktop/panel_test.h"
#include "tests/support/requirements.h"

#include <vector>

namespace nimbrale::test {

namespace {

constexpr QPoint onFrame(122, 102);
const QColor lockColor(0x22, 0x33, 0x44);

class X11PanelLockTest : public X11PanelTest {
protected:
    [[nodiscard]] QColor colorAt(QPoint position) { return desktop->pixel(position.x(), position.y()); }

    void grabKeyboard()
    {
        xcb_connection_t* const raw = desktop->connection();
        const x11::Reply<xcb_grab_keyboard_reply_t> reply(
            xcb_grab_keyboard_reply(raw,
                                    xcb_grab_keyboard(raw, 0, desktop->screen().root, XCB_CURRENT_TIME,
                                                      XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                    nullptr));
        ASSERT_TRUE(reply && reply->status == XCB_GRAB_STATUS_SUCCESS);
    }
    void ungrabKeyboard()
    {
        xcb_ungrab_keyboard(desktop->connection(), XCB_CURRENT_TIME);
        desktop->synchronize();
    }

    [[nodiscard]] bool isLocked() { return host->panels->sessionLock().isLocked(); }
    /// Whether the session is not locked at any time in that long.
    [[nodiscard]] bool staysUnlocked(Milliseconds duration)
    {
        return !host->pumpUntil([&] { return isLocked(); }, duration);
    }

    /// Whether the frame stays as it is for that long.
    [[nodiscard]] bool staysAtFrame(const QColor& color, Milliseconds duration)
    {
        return !host->pumpUntil([&] { return colorAt(onFrame) != color; }, duration);
    }
};

class X11PanelLockersTest : public X11PanelLockTest,
                            public testing::WithParamInterface<PrivateDesktop::WindowManager> {};

INSTANTIATE_TEST_SUITE_P(WindowManagers, X11PanelLockersTest,
                         testing::Values(PrivateDesktop::WindowManager::none, PrivateDesktop::WindowManager::openbox,
                                         PrivateDesktop::WindowManager::xfwm4),
                         [](const auto& manager) -> std::string {
                             switch (manager.param) {
                             case PrivateDesktop::WindowManager::openbox:
                                 return "openbox";
                             case PrivateDesktop::WindowManager::xfwm4:
                                 return "xfwm4";
                             default:
                                 return "none";
                             }
                         });

TEST_P(X11PanelLockersTest, theFrameIsNeverOverALockedScreenAndComesBackAfterwards)
{
    requireProgram("i3lock");
    startDesktop({.windowManager = GetParam()});
    const auto panel = showFrame();
    ASSERT_TRUE(host->pumpUntil([&] { return colorAt(onFrame) == yellow; }));
    for (int round = 0; round < 5; ++round) {
        const auto locker = desktop->spawn("i3lock", {"--nofork", "--color", "223344"});
        ASSERT_TRUE(locker);
        const auto isLocked = [&] { return colorAt({900, 600}) == lockColor; };
        ASSERT_TRUE(host->pumpUntil(isLocked, Milliseconds{5000})) << locker->output();
        EXPECT_TRUE(staysAtFrame(lockColor, Milliseconds{1500})) << "round " << round;
        ASSERT_TRUE(isLocked());
        locker->terminate();
        EXPECT_TRUE(host->pumpUntil([&] { return colorAt(onFrame) == yellow; })) << "round " << round;
    }
}

TEST_P(X11PanelLockersTest, theSessionIsLockedWhileALockerIsThere)
{
    requireProgram("i3lock");
    startDesktop({.windowManager = GetParam()});
    std::vector<bool> told;
    const Subscription observer = host->panels->sessionLock().observe([&] { told.push_back(isLocked()); });
    EXPECT_TRUE(staysUnlocked(Milliseconds{300}));
    const auto locker = desktop->spawn("i3lock", {"--nofork", "--color", "223344"});
    ASSERT_TRUE(locker);
    EXPECT_TRUE(host->pumpUntil([&] { return isLocked(); })) << locker->output();
    host->pumpFor(Milliseconds{1500});
    EXPECT_EQ(told, (std::vector{true}));
    locker->terminate();
    EXPECT_TRUE(host->pumpUntil([&] { return !isLocked(); }));
    EXPECT_EQ(told, (std::vector{true, false}));
}

TEST_F(X11PanelLockTest, aFullScreenWindowLocksTheSessionOnlyWhileItHasTheKeyboard)
{
    startScene({});
    scene->add("cover", {.geometry = {0, 0, 1280, 720}, .seed = 0, .color = lockColor});
    EXPECT_TRUE(staysUnlocked(Milliseconds{1000})) << "not even while nobody knows yet what it is";
    grabKeyboard();
    EXPECT_TRUE(host->pumpUntil([&] { return isLocked(); }));
    ungrabKeyboard();
    EXPECT_TRUE(host->pumpUntil([&] { return !isLocked(); }));
    grabKeyboard();
    ASSERT_TRUE(host->pumpUntil([&] { return isLocked(); }));
    scene->unmap("cover");
    EXPECT_TRUE(host->pumpUntil([&] { return !isLocked(); }));
}

TEST_F(X11PanelLockTest, aLockerThatIsThereBeforeTheApplicationLocksTheSession)
{
    startScene({});
    scene->add("cover", {.geometry = {0, 0, 1280, 720}, .seed = 0, .color = lockColor});
    grabKeyboard();
    ASSERT_TRUE(host->pumpUntil([&] { return isLocked(); }));
    const PanelHost startedLater(*desktop);
    EXPECT_TRUE(startedLater.panels->sessionLock().isLocked());
}

TEST_F(X11PanelLockTest, aFullScreenWindowThatTakesTheKeyboardLaterIsALockerFromThenOn)
{
    startScene({});
    const auto panel = showFrame();
    scene->add("cover", {.geometry = {0, 0, 1280, 720}, .seed = 0, .color = lockColor});
    ASSERT_TRUE(host->pumpUntil([&] { return colorAt(onFrame) == yellow; })) << "it might be a game or a viewer";
    EXPECT_TRUE(staysAtFrame(yellow, Milliseconds{500}));
    grabKeyboard();
    EXPECT_TRUE(host->pumpUntil([&] { return colorAt(onFrame) == lockColor; }));
    EXPECT_TRUE(staysAtFrame(lockColor, Milliseconds{1000}));
    ungrabKeyboard();
    EXPECT_TRUE(host->pumpUntil([&] { return colorAt(onFrame) == yellow; }));
    grabKeyboard();
    ASSERT_TRUE(host->pumpUntil([&] { return colorAt(onFrame) == lockColor; }));
    scene->unmap("cover");
    EXPECT_TRUE(host->pumpUntil([&] { return colorAt(onFrame) == yellow; }));
}

TEST_F(X11PanelLockTest, aMenuThatTakesTheKeyboardDoesNotHideTheFrame)
{
    startScene({.windowManager = PrivateDesktop::WindowManager::openbox});
    // A full-screen viewer that the window manager manages, and a background that none manages, far below.
    scene->add("wallpaper", {.geometry = {0, 0, 1280, 720}, .seed = 0, .color = Qt::blue});
    scene->lower("wallpaper");
    scene->add("editor", {.geometry = {50, 50, 400, 300}, .overrideRedirect = false});
    const auto panel = showFrame();
    ASSERT_TRUE(host->pumpUntil([&] { return colorAt(onFrame) == yellow; }));
    host->pumpFor(Milliseconds{1000});
    grabKeyboard();
    EXPECT_TRUE(staysAtFrame(yellow, Milliseconds{1500})) << "a wallpaper is no locker";
    ungrabKeyboard();
    scene->add("viewer", {.geometry = {0, 0, 1280, 720}, .overrideRedirect = false, .isFullScreen = true});
    host->pumpFor(Milliseconds{1000});
    ASSERT_TRUE(host->pumpUntil([&] { return colorAt(onFrame) == yellow; }));
    grabKeyboard();
    EXPECT_TRUE(staysAtFrame(yellow, Milliseconds{1500})) << "a managed window is no locker";
    EXPECT_FALSE(isLocked());
}

} // namespace

} // namespace nimbrale::test
