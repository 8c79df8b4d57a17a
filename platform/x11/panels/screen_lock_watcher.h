#pragma once

#include "platform/main_queue.h"
#include "platform/observers.h"
#include "platform/pixel_rect.h"
#include "platform/session_lock.h"
#include "platform/x11/displays/x11_screens.h"
#include "platform/x11/panels/panel_stack.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/server/owned_id.h"
#include "platform/x11/server/window_events.h"

#include <chrono>
#include <functional>
#include <memory>
#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Finds screen lockers by their windows, and lets panels give way to them.
///
/// No property tells a locker from a game. What all of them do is to cover whole displays with windows that no window
/// manager manages, in front of all that is managed, and to hold the keyboard; nothing else does both. As a locker
/// takes the keyboard only after its window is there, panels also wait a moment before they go in front of such a
/// window. Main thread only.
class ScreenLockWatcher final : public SessionLock {
public:
    /// `virtualDisplay` tells where the application's own display is, which nobody works on. All references must
    /// outlive it.
    ScreenLockWatcher(Connection& connection, EventDispatcher& events, MainQueue& queue, const X11Screens& screens,
                      PanelStack& stack, std::function<PixelRect()> virtualDisplay);
    ScreenLockWatcher(const ScreenLockWatcher&) = delete;
    ScreenLockWatcher& operator=(const ScreenLockWatcher&) = delete;

    /// Whether a window is there that does both. Not so in the moment in which panels only wait.
    [[nodiscard]] bool isLocked() const override { return isLocked_; }
    [[nodiscard]] Subscription observe(std::function<void()> observer) override
    {
        return observers_.add(std::move(observer));
    }

private:
    using Clock = std::chrono::steady_clock;

    /// An unmanaged window that covers a display.
    struct Cover {
        xcb_window_t window = XCB_NONE;
        Clock::time_point since;
        /// While it may be a locker.
        Subscription givenWay = {};
        bool isLocker = false;
    };

    void noteExisting();
    void handle(const xcb_generic_event_t& event);
    /// `since`: when it came to cover a display. One that was there before us has had its time to take the keyboard.
    void noteIfCover(xcb_window_t window, bool isUnmanaged, Clock::time_point since);
    void forget(xcb_window_t window);
    void check();
    void checkAgain();
    void tellOfChange();
    [[nodiscard]] bool coversDisplay(xcb_window_t window) const;
    [[nodiscard]] bool isKeyboardGrabbed() const;
    /// Whether nothing that a window manager manages stands in front of it.
    [[nodiscard]] bool isInFront(xcb_window_t window) const;
    [[nodiscard]] bool holdsManagedWindow(xcb_window_t window, int depth) const;

    Connection& connection_;
    MainQueue& queue_;
    const X11Screens& screens_;
    PanelStack& stack_;
    std::function<PixelRect()> virtualDisplay_;
    /// Never shown: what a grab is asked for that must not succeed.
    OwnedWindow hidden_;
    std::vector<Cover> covers_;
    bool isLocked_ = false;
    Observers observers_;
    std::unique_ptr<Timer> nextCheck_;
    WindowEvents rootEvents_;
    Subscription handler_;
};

} // namespace nimbrale::x11
