#pragma once

#include "platform/pixel_rect.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/window_events.h"

#include <QRegion>

#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// The window above all others that a compositing manager draws the desktop into. Other programs may have children in
/// it. Held only while a compositing manager runs: without one it would hide the whole desktop. Main thread only.
class CompositeOverlay {
public:
    explicit CompositeOverlay(Connection& connection);
    /// Releases the overlay.
    ~CompositeOverlay();
    CompositeOverlay(const CompositeOverlay&) = delete;
    CompositeOverlay& operator=(const CompositeOverlay&) = delete;

    /// Whether the client that made `window` has it, as a compositing manager does that draws into it. False where the
    /// server does not tell (X-Resource). Waits for the server.
    [[nodiscard]] bool isHeldBy(xcb_window_t window) const;
    /// False when the server has none.
    [[nodiscard]] bool acquire();
    /// Children that are still in it may be destroyed. Sent with the next flush.
    void release();
    /// 0 while it is not held.
    [[nodiscard]] xcb_window_t window() const { return window_; }
    /// Whether it is mapped: a compositing manager may unmap it for as long as a single window fills the screen. While
    /// it is held, the connection hears of that by `XCB_MAP_NOTIFY` and `XCB_UNMAP_NOTIFY`. Waits for the server.
    [[nodiscard]] bool isOnScreen() const;

    /// Some compositing managers cut the overlay down to the real displays: makes sure that `area` is in its shape too.
    /// An overlay that has no shape is left alone. Waits for the server.
    void open(const PixelRect& area);
    /// Takes out of the shape again what was opened, but for `area`.
    void closeAllBut(const PixelRect& area);
    /// What was opened stays in the shape, for the windows of a display that outlives this process.
    void leaveOpen() { opened_ = {}; }

private:
    // A compositing manager that missed a change of the screen's size leaves the overlay as it was.
    void stretchOver(const PixelRect& area);

    Connection& connection_;
    xcb_window_t window_ = XCB_WINDOW_NONE;
    WindowEvents mappings_;
    QRegion opened_;
};

} // namespace nimbrale::x11
