#pragma once

#include "platform/main_queue.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/pixel_region.h"

#include <cstddef>
#include <memory>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Reports to everybody who follows it that `region` of the window, in its own pixels, was drawn, though nothing was.
/// Nothing happens on a server without DAMAGE, or when the window is gone. Thread of the connection.
void reportDamage(Connection& connection, xcb_window_t window, const PixelRegion& region);

/// Has the compositing manager look once more at what was drawn there. mutter takes note of damage over one connection
/// and copies the window over another: what is drawn in between is taken for shown, and is not, until the next damage.
/// It also fetches news into a queue of its own and was seen to sleep with some of it left there, until there is other
/// news: so the change of a property is told, too. Sent at once.
void remindManager(Connection& connection, xcb_window_t window, const PixelRegion& region);

/// Reminds the compositing manager of what was drawn in a window before nothing more was. Main thread only.
class ManagerReminder {
public:
    /// Both must outlive it.
    ManagerReminder(Connection& connection, MainQueue& queue, xcb_window_t window)
        : connection_(connection), queue_(queue), window_(window)
    {}

    /// `region`, in the window's own pixels, was drawn.
    void drawn(const PixelRegion& region);
    /// The window shows nothing any more.
    void stop();

private:
    void schedule(std::size_t done);

    Connection& connection_;
    MainQueue& queue_;
    xcb_window_t window_;
    PixelRegion region_;
    std::unique_ptr<Timer> timer_;
};

} // namespace nimbrale::x11
