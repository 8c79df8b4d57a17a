#pragma once

#include "platform/x11/capture/held_places.h"
#include "platform/x11/server/pixel_region.h"

namespace nimbrale::x11 {

/// Where the screen may show a panel that was moved and painted anew. A compositing manager takes over the panel's
/// place and its pixels at different times: it was seen to show old pixels in the new place, and new ones in the old
/// place. Who follows the panel hears of both at different times, too. So all that was painted lately may be at every
/// place where the panel was lately. One that hears of a new size when the panel has another one already finds pixels
/// that do not fit: KWin was seen to stretch old ones over the whole new place, picom to smear their edges over it, and
/// mutter to show all of larger ones from that place on.
/// Pure: the time is handed in.
class PaintTrail {
public:
    using Clock = HeldPlaces::Clock;

    /// The panel was at `place`, in root pixels, until `now`.
    void leavePlace(const PixelRect& place, Clock::time_point now);
    /// The panel showed `painted`, in its own pixels, until `now`.
    void leavePaint(const PixelRegion& painted, Clock::time_point now);
    /// The panel was at `place`, and of its size, until `now`.
    void leaveSize(const PixelRect& place, Clock::time_point now);
    /// Lets go of what the screen shows no more.
    void release(Clock::time_point now, const HeldPlaces::Progress& progress);
    void clear();

    /// In root pixels, of a panel that is at `place` now and shows `painted`. Empty where it was only moved, only
    /// painted or only resized once lately: each place that it left with what it showed there is for the caller to
    /// hold.
    [[nodiscard]] PixelRegion region(const PixelRect& place, const PixelRegion& painted) const;

private:
    HeldPlaces places_;
    HeldPlaces paints_;
    HeldPlaces resized_;
    /// Places of panels that were resized once more before it was proven that the screen shows the last size.
    HeldPlaces stretched_;
};

} // namespace nimbrale::x11
