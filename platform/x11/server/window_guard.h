#pragma once

#include "platform/main_queue.h"
#include "platform/observers.h"
#include "platform/pixel_rect.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/correction_limiter.h"
#include "platform/x11/server/event_dispatcher.h"

#include <functional>
#include <memory>
#include <optional>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// What another client did to a window.
enum class WindowDamage {
    displaced, ///< unmapped, moved or resized
    adopted,   ///< given another parent
    destroyed
};

/// Notices when another client unmaps, moves, resizes, adopts or destroys a window, and has that repaired, ten
/// times a second at most. Main thread only.
class WindowGuard {
public:
    /// How the window ought to be. A window manager places and adopts the windows that it manages, and hides those that
    /// the user made small.
    struct Wanted {
        xcb_window_t window = XCB_NONE;
        bool isManaged = false;
        bool isShown = false;
        xcb_window_t parent = XCB_NONE;
        /// In pixels of the root, where the parent's origin is too.
        PixelRect pixels;
    };

    /// `wanted` is asked at any time, `repair` called from the main queue; it may destroy the guard. The window's owner
    /// asks for its StructureNotify events. All references must outlive it.
    WindowGuard(Connection& connection, EventDispatcher& events, MainQueue& queue, std::function<Wanted()> wanted,
                std::function<void(WindowDamage)> repair);
    WindowGuard(const WindowGuard&) = delete;
    WindowGuard& operator=(const WindowGuard&) = delete;

private:
    [[nodiscard]] bool isSuspicious(const xcb_generic_event_t& event) const;
    void scheduleCheck();
    void check();
    [[nodiscard]] std::optional<WindowDamage> findDamage() const;
    [[nodiscard]] bool isMadeSmall(xcb_window_t window) const;

    Connection& connection_;
    MainQueue& queue_;
    std::function<Wanted()> wanted_;
    std::function<void(WindowDamage)> repair_;
    CorrectionLimiter limiter_;
    std::unique_ptr<Timer> pendingCheck_;
    Subscription handler_;
};

} // namespace nimbrale::x11
