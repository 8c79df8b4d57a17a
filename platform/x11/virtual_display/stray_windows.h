#pragma once

#include "platform/main_queue.h"
#include "platform/pixel_rect.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/correction_limiter.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/server/window_events.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace nimbrale::x11 {

/// Brings back what a window manager puts where only the virtual display is. Window managers that give each monitor a
/// workspace open windows there, and show workspaces, which nobody at this computer sees. Asks for everything as a
/// pager does. Main thread only.
class StrayWindows {
public:
    /// All must outlive it.
    StrayWindows(Connection& connection, EventDispatcher& events, MainQueue& queue);
    StrayWindows(const StrayWindows&) = delete;
    StrayWindows& operator=(const StrayWindows&) = delete;

    /// Where the virtual display is and what holds all displays, in pixels of the root.
    void setPlace(const PixelRect& virtualDisplay, const PixelRect& displays);

    /// Called when a window has been sent back.
    std::function<void()> onReturned;

private:
    void handle(const xcb_generic_event_t& event);
    void propertyChanged(const xcb_property_notify_event_t& event);
    void checkSoon();
    void check();
    /// A window that is shown on the virtual display, and the desktop that it is on, if its window manager says so.
    struct Stray {
        xcb_window_t window;
        PixelRect place;
        std::optional<std::uint32_t> desktop;
    };
    [[nodiscard]] std::vector<Stray> findStrays() const;
    void readDesktops(const std::vector<Stray>& strays);
    [[nodiscard]] bool isOut(std::uint32_t desktop) const;
    void leaveDesktop();
    void bringBack(const Stray& stray);
    [[nodiscard]] std::optional<PixelRect> placeOf(xcb_window_t window) const;
    void ask(const char* message, xcb_window_t window, const std::vector<std::uint32_t>& values);

    Connection& connection_;
    MainQueue& queue_;
    PixelRect virtualDisplay_;
    PixelRect displays_;
    /// The one that the user works on, and the last of them that lay on a display.
    std::uint32_t desktop_ = 0;
    std::optional<std::uint32_t> visibleDesktop_;
    /// Where desktops begin, x and y of each, as far as the window manager says so.
    std::vector<std::uint32_t> origins_;
    /// A window manager that insists is left alone for a while.
    CorrectionLimiter corrections_{20, std::chrono::seconds{10}};
    WindowEvents rootEvents_;
    Subscription subscription_;
    std::unique_ptr<Timer> timer_;
};

} // namespace nimbrale::x11
