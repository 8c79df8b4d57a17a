#pragma once

#include "platform/x11/server/pixel_region.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Which pixels of this process's translucent windows are not wholly transparent. Who paints tells it here before the
/// server hears of it, so that who copies the screen can leave those pixels out and know, after a round trip, that it
/// knew of all. Any thread.
class PaintedRegions {
public:
    struct Painted {
        PixelRegion now;
        /// All that was painted at some time since the last `take`, `now` included.
        PixelRegion sinceTaken;
    };

    PaintedRegions() = default;
    PaintedRegions(const PaintedRegions&) = delete;
    PaintedRegions& operator=(const PaintedRegions&) = delete;

    /// In the window's own pixels. To be called before a request changes them, with those painted before and after it,
    /// and again when the request is sent, with those painted after it.
    void set(xcb_window_t window, const PixelRegion& painted);
    /// The window is about to be destroyed.
    void forget(xcb_window_t window);

    /// Another one whenever something was set.
    [[nodiscard]] std::uint64_t version() const { return version_; }
    /// Absent for a window that nothing was told of: all of it may be painted. For one caller only.
    [[nodiscard]] std::optional<Painted> take(xcb_window_t window);

private:
    std::mutex mutex_;
    std::map<xcb_window_t, Painted> windows_;
    std::atomic<std::uint64_t> version_ = 0;
};

} // namespace nimbrale::x11
