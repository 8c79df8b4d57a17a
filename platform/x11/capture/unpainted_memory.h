#pragma once

#include "platform/x11/capture/captured_window.h"
#include "platform/x11/server/pixel_region.h"

#include <unordered_map>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// What windows carry along of other windows that a picture leaves out. The server fills a window's new memory with
/// what the screen shows there, and until the window has painted itself, that is in its pixels wherever it goes. Pure:
/// needs no server. Capture thread only.
class UnpaintedMemory {
public:
    /// The server has filled memory of `window` where it is now, of a size that may not be known yet, while the screen
    /// may have shown windows that are left out in `leftOut` (root pixels).
    void add(const CapturedWindow& window, const PixelRegion& leftOut);
    /// The window has painted itself, or is gone.
    void remove(xcb_window_t window) { regions_.erase(window); }

    [[nodiscard]] bool isEmpty() const { return regions_.empty(); }
    /// Where the pixels of `window`, as it lies now, may show what is left out, in root pixels. Empty for nearly all
    /// windows.
    [[nodiscard]] PixelRegion placeOf(const CapturedWindow& window) const;

private:
    /// From each window's top-left corner.
    std::unordered_map<xcb_window_t, PixelRegion> regions_;
};

} // namespace nimbrale::x11
