// Panels and screen lockers: nothing of ours lies over a locked screen, and nothing else makes panels give way.

#include "tests/desktop/panel_test.h"
#include "tests/support/request_counter.h"
#include "tests/support/requirements.h"

#include <memory>
#include <ostream>
#include <string>
#include <vector>
#include <xcb/composite.h>

namespace nimbrale::test {

namespace {

using WindowManager = PrivateDesktop::WindowManager;
using Compositor = PrivateDesktop::Compositor;

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

struct Managers {
    std::string name;
    WindowManager windowManager;
    Compositor compositor = Compositor::none;
};

void PrintTo(const Managers& managers, std::ostream* stream)
{
    *stream << managers.name;
}

const auto nameOf = [](const auto& managers) { return managers.param.name; };

class X11PanelLockersTest : public X11PanelLockTest, public testing::WithParamInterface<Managers> {
protected:
    void startManagedDesktop()
    {
        startDesktop({.windowManager = GetParam().windowManager, .compositor = GetParam().compositor});
    }
};

const Managers picom{"Picom", WindowManager::openbox, Compositor::picom};
const Managers xfwm4{"Xfwm4Compositing", WindowManager::xfwm4, Compositor::windowManagersOwn};
const Managers marco{"MarcoCompositing", WindowManager::marco, Compositor::windowManagersOwn};
const Managers kwin{"KwinCompositing", WindowManager::kwin, Compositor::windowManagersOwn};
const Managers mutter{"Mutter", WindowManager::mutter, Compositor::windowManagersOwn};

INSTANTIATE_TEST_SUITE_P(WindowManagers, X11PanelLockersTest,
                         testing::Values(Managers{"none", WindowManager::none},
                                         Managers{"openbox", WindowManager::openbox},
                                         Managers{"xfwm4", WindowManager::xfwm4}, picom, xfwm4, marco, kwin, mutter),
                         nameOf);

TEST_P(X11PanelLockersTest, theFrameIsNeverOverALockedScreenAndComesBackAfterwards)
{
    requireProgram("i3lock");
    startManagedDesktop();
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
    startManagedDesktop();
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

/// Under a compositing manager, with its overlay taken off the screen and put back, as it is for a full-screen window.
class X11PanelOverlayTest : public X11PanelLockersTest {
protected:
    void SetUp() override
    {
        startManagedDesktop();
        host.reset();
        counter = RequestCounter::start(desktop->displayName());
        ASSERT_TRUE(counter);
        host = std::make_unique<PanelHost>(counter->displayName());
        xcb_connection_t* const raw = desktop->connection();
        const x11::Reply<xcb_composite_get_overlay_window_reply_t> overlay(xcb_composite_get_overlay_window_reply(
            raw, xcb_composite_get_overlay_window(raw, desktop->screen().root), nullptr));
        ASSERT_TRUE(overlay);
        xcb_unmap_window(raw, overlay->overlay_win);
        xcb_map_window(raw, overlay->overlay_win);
        desktop->synchronize();
        host->pumpFor(Milliseconds{300});
    }

    void TearDown() override
    {
        X11PanelLockersTest::TearDown();
        counter.reset();
    }

    /// Each look at what covers a display asks whether the keyboard is held.
    [[nodiscard]] int looksWithin(Milliseconds duration)
    {
        const int before = counter->count(XCB_GRAB_KEYBOARD);
        host->pumpFor(duration);
        return counter->count(XCB_GRAB_KEYBOARD) - before;
    }

    std::unique_ptr<RequestCounter> counter;
};

INSTANTIATE_TEST_SUITE_P(, X11PanelOverlayTest, testing::Values(picom, xfwm4, marco, kwin, mutter), nameOf);

TEST_P(X11PanelOverlayTest, isNotAskedAboutAgainAndAgain)
{
    EXPECT_EQ(looksWithin(Milliseconds{2500}), 0);
    scene = requireScene(*desktop);
    scene->add("cover", {.geometry = {0, 0, 1280, 720}, .seed = 0, .color = lockColor});
    EXPECT_GT(looksWithin(Milliseconds{2500}), 5) << "the control: what may be a locker is";
}

TEST_P(X11PanelOverlayTest, isNoLockerWhenAMenuTakesTheKeyboard)
{
    grabKeyboard();
    EXPECT_TRUE(staysUnlocked(Milliseconds{1500}));
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
