#include "tests/support/private_desktop.h"

#include "tests/support/x_reply.h"

#include <csignal>
#include <fstream>
#include <utility>
#include <xcb/res.h>
#include <xcb/xcb.h>

namespace nimbrale::test {

namespace {

constexpr Milliseconds managerPatience{15000};

xcb_window_t windowIn(xcb_connection_t* connection, xcb_window_t window, xcb_atom_t property)
{
    const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection, xcb_get_property(connection, 0, window, property, XCB_ATOM_WINDOW, 0, 1), nullptr));
    if (!reply || xcb_get_property_value_length(reply.get()) < 4)
        return XCB_WINDOW_NONE;
    return *static_cast<const xcb_window_t*>(xcb_get_property_value(reply.get()));
}

} // namespace

std::string PrivateDesktop::missingManager(const Options& options)
{
    std::vector<std::string> programs;
    switch (options.windowManager) {
    case WindowManager::none:
        break;
    case WindowManager::openbox:
        programs = {"openbox"};
        break;
    case WindowManager::xfwm4:
        programs = {"dbus-run-session", "xfwm4"};
        break;
    case WindowManager::kwin:
        programs = {"dbus-run-session", "kwin_x11"};
        break;
    case WindowManager::marco:
        programs = {"dbus-run-session", "marco"};
        break;
    case WindowManager::mutter:
        programs = {"dbus-run-session", "mutter"};
        break;
    }
    if (isPicom(options.compositor))
        programs.emplace_back("picom");
    for (const std::string& program : programs) {
        if (findProgram(program).empty())
            return program + " is not installed";
    }
    return {};
}

std::string PrivateDesktop::managerName(WindowManager manager)
{
    switch (manager) {
    case WindowManager::none:
        break;
    case WindowManager::openbox:
        return "Openbox";
    case WindowManager::xfwm4:
        return "Xfwm4";
    case WindowManager::kwin:
        return "Kwin";
    case WindowManager::marco:
        return "Marco";
    case WindowManager::mutter:
        return "Mutter";
    }
    return "None";
}

bool PrivateDesktop::hasWindowManager() const
{
    const xcb_atom_t check = atom("_NET_SUPPORTING_WM_CHECK");
    const xcb_window_t window = windowIn(connection_, screen_->root, check);
    return window && windowIn(connection_, window, check) == window;
}

/// Gives up when the program has ended.
bool PrivateDesktop::waitForWindowManager() const
{
    static_cast<void>(
        waitUntil([this] { return hasWindowManager() || !windowManager_->isRunning(); }, managerPatience));
    return hasWindowManager();
}

/// A manager announces itself before it has looked at the windows that are there, and does not focus those. It knows of
/// all windows and of the focus when it says which one is active; one with no window to name is given a moment.
void PrivateDesktop::waitUntilWindowManagerIsIdle() const
{
    const xcb_atom_t active = atom("_NET_ACTIVE_WINDOW");
    static_cast<void>(waitUntil(
        [&] {
            const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
                connection_, xcb_get_property(connection_, 0, screen_->root, active, XCB_ATOM_ANY, 0, 1), nullptr));
            return reply && reply->type != XCB_ATOM_NONE;
        },
        Milliseconds{300}));
}

bool PrivateDesktop::startWindowManager()
{
    const bool composites = options_.compositor == Compositor::windowManagersOwn;
    switch (options_.windowManager) {
    case WindowManager::none:
        return true;
    case WindowManager::openbox:
        windowManager_ = spawn("openbox", {"--sm-disable"});
        break;
    case WindowManager::xfwm4:
        // Its settings daemon is reached over a session bus only, which lives and dies with the window manager.
        windowManager_ =
            spawn("dbus-run-session", {"--", "xfwm4", std::string("--compositor=") + (composites ? "on" : "off")});
        break;
    case WindowManager::kwin:
        std::ofstream(configFolder() / "kwinrc")
            << "[Compositing]\nEnabled=" << (composites ? "true" : "false") << "\nOpenGLIsUnsafe=false\n";
        windowManager_ = spawn("dbus-run-session", {"--", "kwin_x11"}, {{"LIBGL_ALWAYS_SOFTWARE", "1"}});
        break;
    case WindowManager::marco:
        windowManager_ =
            spawn("dbus-run-session", {"--", "marco", composites ? "--composite" : "--no-composite", "--sm-disable"});
        break;
    case WindowManager::mutter:
        windowManager_ =
            spawn("dbus-run-session", {"--", "mutter", "--x11", "--sm-disable"}, {{"LIBGL_ALWAYS_SOFTWARE", "1"}});
        break;
    }
    if (!windowManager_ || !waitForWindowManager())
        return false;
    waitUntilWindowManagerIsIdle();
    return !composites || waitUntil([this] { return isComposited(); }, managerPatience);
}

bool PrivateDesktop::stopWindowManager()
{
    windowManager_.reset();
    return waitUntil([this] { return !hasWindowManager(); }, managerPatience);
}

bool PrivateDesktop::isComposited() const
{
    const Reply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
        connection_, xcb_get_selection_owner(connection_, atom("_NET_WM_CM_S0")), nullptr));
    return reply && reply->owner != XCB_WINDOW_NONE;
}

bool PrivateDesktop::startCompositor()
{
    if (options_.windowManager != WindowManager::none && options_.windowManager != WindowManager::openbox) {
        options_.compositor = Compositor::windowManagersOwn;
        return stopWindowManager() && startWindowManager();
    }
    // No fading and no shadows, so that pictures can be compared at once.
    const std::string backend = options_.compositor == Compositor::picomGlx ? "glx" : "xrender";
    compositor_ = spawn("picom", {"--config", "/dev/null", "--backend", backend}, {{"LIBGL_ALWAYS_SOFTWARE", "1"}});
    if (!compositor_)
        return false;
    static_cast<void>(waitUntil([this] { return isComposited() || !compositor_->isRunning(); }, managerPatience));
    return isComposited();
}

bool PrivateDesktop::pauseCompositor()
{
    paused_ = compositorProcess();
    return paused_ > 0 && kill(paused_, SIGSTOP) == 0;
}

void PrivateDesktop::resumeCompositor()
{
    if (paused_ > 0)
        kill(std::exchange(paused_, 0), SIGCONT);
}

// A window manager may be the child of what was started.
pid_t PrivateDesktop::compositorProcess()
{
    const Reply<xcb_get_selection_owner_reply_t> owner(xcb_get_selection_owner_reply(
        connection_, xcb_get_selection_owner(connection_, atom("_NET_WM_CM_S0")), nullptr));
    if (!owner || owner->owner == XCB_WINDOW_NONE)
        return 0;
    const xcb_res_client_id_spec_t question{owner->owner, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
    const Reply<xcb_res_query_client_ids_reply_t> reply(
        xcb_res_query_client_ids_reply(connection_, xcb_res_query_client_ids(connection_, 1, &question), nullptr));
    if (!reply)
        return 0;
    const auto value = xcb_res_query_client_ids_ids_iterator(reply.get());
    return value.rem && xcb_res_client_id_value_value_length(value.data) > 0
               ? static_cast<pid_t>(*xcb_res_client_id_value_value(value.data))
               : 0;
}

bool PrivateDesktop::stopCompositor()
{
    if (compositor_) {
        compositor_.reset();
    } else if (options_.compositor == Compositor::windowManagersOwn) {
        options_.compositor = Compositor::none;
        if (!stopWindowManager() || !startWindowManager())
            return false;
    }
    return waitUntil([this] { return !isComposited(); }, managerPatience);
}

} // namespace nimbrale::test
