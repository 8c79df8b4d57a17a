#include "platform/x11/capture/screen_mask.h"

#include <limits>
#include <vector>

namespace nimbrale::x11 {

namespace {

PixelRegion grown(const PixelRegion& region, int margin)
{
    std::vector<PixelRect> rects = region.rects();
    for (PixelRect& rect : rects)
        rect = {rect.x - margin, rect.y - margin, rect.width + 2 * margin, rect.height + 2 * margin};
    return PixelRegion(rects);
}

} // namespace

PixelRegion ScreenMask::everything()
{
    constexpr int largest = std::numeric_limits<std::int16_t>::max();
    return {0, 0, largest, largest};
}

void ScreenMask::reset()
{
    held_ = {};
    mask_.clear();
    changedBelow_.clear();
    distrusted_.clear();
    unseen_ = everything();
}

PixelRegion ScreenMask::update(const PixelRegion& current, Clock::time_point now, const HeldPlaces::Progress& progress)
{
    held_.release(now, progress);
    PixelRegion left(mask_);
    mask_ = current;
    mask_ |= held_.region();
    left -= mask_;
    unseen_ |= left;
    return left;
}

void ScreenMask::distrustOutside(const PixelRegion& region)
{
    PixelRegion outside = everything();
    outside -= region;
    distrust(outside);
}

void ScreenMask::noteScreenDamage(const PixelRegion& damage)
{
    PixelRegion seen(damage);
    seen -= mask_;
    unseen_ |= seen;
}

ScreenMask::Parts ScreenMask::divide(const PixelRegion& dirty, const PixelRegion& before)
{
    Parts parts;
    parts.fromScreen = dirty;
    parts.fromScreen -= mask_;
    parts.fromSeen = dirty;
    parts.fromSeen &= mask_;

    parts.fromBefore = mask_;
    parts.fromBefore &= unseen_;
    parts.fromBefore &= before;
    parts.fromBefore -= distrusted_;
    distrusted_.clear();
    unseen_ -= parts.fromBefore;

    parts.composed = parts.fromSeen;
    parts.composed &= unseen_;
    changedBelow_ &= mask_;
    parts.seenBefore = changedBelow_;
    parts.seenBefore -= unseen_;
    parts.composed |= changedBelow_;
    changedBelow_.clear();
    unseen_ -= parts.composed;

    parts.refreshed = grown(mask_, reach);
    parts.refreshed &= unseen_;
    parts.refreshed -= mask_;
    unseen_ -= parts.refreshed;
    return parts;
}

} // namespace nimbrale::x11
