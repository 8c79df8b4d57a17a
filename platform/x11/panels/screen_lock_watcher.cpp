#include "platform/x11/panels/screen_lock_watcher.h"

#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/server/window_attributes.h"
#include "platform/x11/server/window_maker.h"
#include "platform/x11/server/window_tree.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace nimbrale::x11 {

namespace {

using namespace std::chrono_literals;

// A locker tries for the keyboard as soon as its window is there, and again and again while a menu holds it.
constexpr auto undecidedTime = 500ms;
constexpr auto alertTime = 5s;
constexpr auto alertInterval = 100ms;
constexpr auto restInterval = 1s;
// The client lies in the manager's frame, with at most one window in between.
constexpr int deepestClient = 2;

} // namespace

ScreenLockWatcher::ScreenLockWatcher(Connection& connection, EventDispatcher& events, MainQueue& queue,
                                     const X11Screens& screens, PanelStack& stack,
                                     std::function<PixelRect()> virtualDisplay)
    : connection_(connection), queue_(queue), screens_(screens), stack_(stack),
      virtualDisplay_(std::move(virtualDisplay)), hidden_(connection, connection.newId()),
      rootEvents_(connection, connection.root(), XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY),
      handler_(events.add({XCB_MAP_NOTIFY, XCB_CONFIGURE_NOTIFY, XCB_UNMAP_NOTIFY, XCB_DESTROY_NOTIFY},
                          [this](const auto& event) { handle(event); }))
{
    xcb_create_window(connection_.get(), XCB_COPY_FROM_PARENT, hidden_.get(), connection_.root(), -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
    noteExisting();
}

void ScreenLockWatcher::noteExisting()
{
    const std::vector<xcb_window_t> windows = childrenOf(connection_, connection_.root());
    const std::vector<WindowAttributes> attributes = attributesOf(connection_, windows);
    for (std::size_t index = 0; index < windows.size(); ++index) {
        if (isViewable(attributes[index]))
            noteIfCover(windows[index], attributes[index]->override_redirect != 0, {});
    }
}

void ScreenLockWatcher::handle(const xcb_generic_event_t& event)
{
    switch (eventType(event)) {
    case XCB_MAP_NOTIFY: {
        const auto& map = eventAs<xcb_map_notify_event_t>(event);
        if (map.event == connection_.root())
            noteIfCover(map.window, map.override_redirect != 0, Clock::now());
        return;
    }
    case XCB_CONFIGURE_NOTIFY: {
        const auto& configure = eventAs<xcb_configure_notify_event_t>(event);
        if (configure.event == connection_.root())
            noteIfCover(configure.window, configure.override_redirect != 0, Clock::now());
        return;
    }
    case XCB_UNMAP_NOTIFY:
        forget(eventAs<xcb_unmap_notify_event_t>(event).window);
        return;
    default:
        forget(eventAs<xcb_destroy_notify_event_t>(event).window);
        return;
    }
}

void ScreenLockWatcher::noteIfCover(xcb_window_t window, bool isUnmanaged, Clock::time_point since)
{
    const bool isKnown = std::ranges::any_of(covers_, [window](const Cover& cover) { return cover.window == window; });
    // Lockers are other programs. What the server made itself shows what a compositing manager draws.
    if (!isUnmanaged || makerOf(connection_, window) != WindowMaker::others || isKnown || !coversDisplay(window))
        return;
    covers_.push_back({window, since});
    check();
}

void ScreenLockWatcher::forget(xcb_window_t window)
{
    if (std::erase_if(covers_, [window](const Cover& cover) { return cover.window == window; }) == 0)
        return;
    if (covers_.empty())
        nextCheck_.reset();
    tellOfChange();
}

void ScreenLockWatcher::check()
{
    std::erase_if(covers_, [this](const Cover& cover) { return !coversDisplay(cover.window); });
    const bool isGrabbed = isKeyboardGrabbed();
    for (Cover& cover : covers_) {
        const bool mayBeLocker = (isGrabbed || Clock::now() - cover.since < undecidedTime) && isInFront(cover.window);
        cover.isLocker = mayBeLocker && isGrabbed;
        if (!mayBeLocker)
            cover.givenWay.reset();
        else if (!cover.givenWay)
            cover.givenWay = stack_.giveWayTo(cover.window);
    }
    checkAgain();
    tellOfChange();
}

void ScreenLockWatcher::tellOfChange()
{
    const bool isLocked = std::ranges::any_of(covers_, &Cover::isLocker);
    if (std::exchange(isLocked_, isLocked) != isLocked)
        observers_.notify();
}

// A game may cover the screen for hours.
void ScreenLockWatcher::checkAgain()
{
    nextCheck_.reset();
    if (covers_.empty())
        return;
    const bool isRecent =
        std::ranges::any_of(covers_, [](const Cover& cover) { return Clock::now() - cover.since < alertTime; });
    nextCheck_ = queue_.schedule(isRecent ? alertInterval : restInterval, [this] { check(); });
}

bool ScreenLockWatcher::coversDisplay(xcb_window_t window) const
{
    xcb_connection_t* const raw = connection_.get();
    const auto attributesAsked = xcb_get_window_attributes(raw, window);
    const Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(raw, xcb_get_geometry(raw, window), nullptr));
    const Reply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(raw, attributesAsked, nullptr));
    if (!geometry || !isViewable(attributes) || attributes->_class == XCB_WINDOW_CLASS_INPUT_ONLY)
        return false;
    const PixelRect pixels{geometry->x, geometry->y, geometry->width, geometry->height};
    return std::ranges::any_of(screens_.all(), [&](const X11Screen& display) {
        return display.pixels != virtualDisplay_() && pixels.intersectedWith(display.pixels) == display.pixels;
    });
}

// Asked for a window that is not shown, the server says that another client has the keyboard if one has, and else that
// the window is not shown. Either way nothing is grabbed, and nobody notices.
bool ScreenLockWatcher::isKeyboardGrabbed() const
{
    const Reply<xcb_grab_keyboard_reply_t> reply(
        xcb_grab_keyboard_reply(connection_.get(),
                                xcb_grab_keyboard(connection_.get(), 0, hidden_.get(), XCB_CURRENT_TIME,
                                                  XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                nullptr));
    return reply && reply->status == XCB_GRAB_STATUS_ALREADY_GRABBED;
}

bool ScreenLockWatcher::isInFront(xcb_window_t window) const
{
    const std::vector<xcb_window_t> bottomToTop = childrenOf(connection_, connection_.root());
    const auto place = std::ranges::find(bottomToTop, window);
    if (place == bottomToTop.end() || holdsManagedWindow(window, deepestClient))
        return false;
    const std::vector<xcb_window_t> inFront(std::next(place), bottomToTop.end());
    const std::vector<WindowAttributes> attributes = attributesOf(connection_, inFront);
    for (std::size_t index = 0; index < inFront.size(); ++index) {
        if (isViewable(attributes[index]) && holdsManagedWindow(inFront[index], deepestClient))
            return false;
    }
    return true;
}

bool ScreenLockWatcher::holdsManagedWindow(xcb_window_t window, int depth) const
{
    const xcb_atom_t state = connection_.atom("WM_STATE");
    if (connection_.property32(window, state, state))
        return true;
    if (depth == 0)
        return false;
    return std::ranges::any_of(childrenOf(connection_, window),
                               [this, depth](xcb_window_t child) { return holdsManagedWindow(child, depth - 1); });
}

} // namespace nimbrale::x11
