#include "tests/support/private_desktop.h"

#include "tests/support/x_reply.h"

#include <csignal>
#include <filesystem>
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

std::vector<std::string> programsOf(PrivateDesktop::WindowManager manager)
{
    using WindowManager = PrivateDesktop::WindowManager;
    switch (manager) {
    case WindowManager::none:
        break;
    case WindowManager::openbox:
        return {"openbox"};
    case WindowManager::xfwm4:
        return {"dbus-run-session", "xfwm4"};
    case WindowManager::kwin:
        return {"dbus-run-session", "kwin_x11"};
    case WindowManager::marco:
        return {"dbus-run-session", "marco"};
    case WindowManager::mutter:
        return {"dbus-run-session", "mutter"};
    case WindowManager::muffin:
        return {"dbus-run-session", "muffin"};
    case WindowManager::i3:
        return {"i3"};
    case WindowManager::bspwm:
        return {"bspwm"};
    case WindowManager::awesome:
        return {"awesome"};
    }
    return {};
}

} // namespace

std::string PrivateDesktop::missingManager(const Options& options)
{
    std::vector<std::string> programs = programsOf(options.windowManager);
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
    case WindowManager::muffin:
        return "Muffin";
    case WindowManager::i3:
        return "I3";
    case WindowManager::bspwm:
        return "Bspwm";
    case WindowManager::awesome:
        return "Awesome";
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

std::unique_ptr<Process> PrivateDesktop::spawnWindowManager()
{
    const bool composites = options_.compositor == Compositor::windowManagersOwn;
    const Environment softwareGl{{"LIBGL_ALWAYS_SOFTWARE", "1"}};
    switch (options_.windowManager) {
    case WindowManager::none:
        break;
    case WindowManager::openbox:
        return spawn("openbox", {"--sm-disable"});
    case WindowManager::xfwm4:
        // Its settings daemon is reached over a session bus only, which lives and dies with the window manager.
        return spawn("dbus-run-session", {"--", "xfwm4", std::string("--compositor=") + (composites ? "on" : "off")});
    case WindowManager::kwin:
        std::ofstream(configFolder() / "kwinrc")
            << "[Compositing]\nEnabled=" << (composites ? "true" : "false") << "\nOpenGLIsUnsafe=false\n";
        return spawn("dbus-run-session", {"--", "kwin_x11"}, softwareGl);
    case WindowManager::marco:
        return spawn("dbus-run-session",
                     {"--", "marco", composites ? "--composite" : "--no-composite", "--sm-disable"});
    case WindowManager::mutter:
        return spawn("dbus-run-session", {"--", "mutter", "--x11", "--sm-disable"}, softwareGl);
    case WindowManager::muffin:
        return spawn("dbus-run-session", {"--", "muffin", "--sm-disable"}, softwareGl);
    case WindowManager::i3:
        std::ofstream(folder_ / "i3") << "# i3 config file (v4)\nfocus_follows_mouse no\n";
        return spawn("i3", {"-c", folder_ / "i3"});
    case WindowManager::bspwm:
        // Its configuration is a program that it runs.
        std::ofstream(folder_ / "bspwmrc") << "#!/bin/sh\nbspc monitor -d one two\n";
        std::filesystem::permissions(folder_ / "bspwmrc", std::filesystem::perms::owner_all);
        return spawn("bspwm", {"-c", folder_ / "bspwmrc"});
    case WindowManager::awesome:
        return spawn("awesome", {"--no-argb"});
    }
    return nullptr;
}

bool PrivateDesktop::startWindowManager()
{
    if (options_.windowManager == WindowManager::none)
        return true;
    windowManager_ = spawnWindowManager();
    if (!windowManager_ || !waitForWindowManager())
        return false;
    waitUntilWindowManagerIsIdle();
    return options_.compositor != Compositor::windowManagersOwn ||
           waitUntil([this] { return isComposited(); }, managerPatience);
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
pid_t PrivateDesktop::compositorProcess() const
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
