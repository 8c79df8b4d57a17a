#include "platform/x11/server/painted_regions.h"

namespace nimbrale::x11 {

void PaintedRegions::set(xcb_window_t window, const PixelRegion& painted)
{
    const std::lock_guard lock(mutex_);
    Painted& known = windows_[window];
    known.now = painted;
    known.sinceTaken |= painted;
    ++version_;
}

void PaintedRegions::forget(xcb_window_t window)
{
    const std::lock_guard lock(mutex_);
    windows_.erase(window);
}

std::optional<PaintedRegions::Painted> PaintedRegions::take(xcb_window_t window)
{
    const std::lock_guard lock(mutex_);
    const auto found = windows_.find(window);
    if (found == windows_.end())
        return std::nullopt;
    Painted taken = found->second;
    found->second.sinceTaken = taken.now;
    return taken;
}

} // namespace nimbrale::x11
