#pragma once

#include "platform/x11/capture/held_places.h"
#include "platform/x11/server/pixel_region.h"

#include <optional>

namespace nimbrale::x11 {

/// Where a picture that is copied from the screen must not be, because the screen shows there, or may still show, a
/// window that the picture leaves out; and how good the picture is that was seen there last and stands in for it. That
/// one is kept beside, as large as the root, but only brought up to date near the mask: it is worth nothing elsewhere.
/// All in root pixels. Pure: needs no server, and the time is handed in. Capture thread only.
class ScreenMask {
public:
    using Clock = HeldPlaces::Clock;

    /// What a frame is drawn from, each pixel from one of the two; and what is to be done to the picture seen last
    /// before.
    struct Parts {
        PixelRegion fromScreen;
        PixelRegion fromSeen;
        /// Copied into the picture seen last from the screen.
        PixelRegion refreshed;
        /// Copied into it from the frame before.
        PixelRegion fromBefore;
        /// Composed into it from the windows' own pixels.
        PixelRegion composed;
        /// What of that was seen before: what no window has pixels of is best left as it is there.
        PixelRegion seenBefore;
    };

    /// How far around the mask the picture seen last is kept up to date: a window is not dragged any further from one
    /// frame to the next.
    static constexpr int reach = 128;

    [[nodiscard]] static PixelRegion everything();

    /// Nothing is masked, and nothing was seen.
    void reset();

    /// A window that is left out has been at this place, and a compositing manager may show it there for that long.
    void hold(const PixelRegion& place, Clock::time_point now, const HeldPlaces::Hold& hold)
    {
        held_.add(place, now, hold);
    }
    /// The same of all these places, each for as long as there.
    void hold(const HeldPlaces& places) { held_.add(places); }
    /// The windows that are left out are at these places now, and the compositing manager has got that far. Returns
    /// what the mask has left: nothing of ours is on the screen there any more, and what is there was not seen.
    [[nodiscard]] PixelRegion update(const PixelRegion& current, Clock::time_point now,
                                     const HeldPlaces::Progress& progress);
    /// As of the last `update`.
    [[nodiscard]] const PixelRegion& region() const { return mask_; }
    /// When `update` will find that a place is not held any more; absent for never.
    [[nodiscard]] std::optional<Clock::time_point> nextRelease() const { return held_.nextRelease(); }
    /// Until when the screen has to be proven, at `now`, to show all that was heard of; absent where nothing waits for
    /// that.
    [[nodiscard]] std::optional<Clock::time_point> requiredProof(Clock::time_point now) const
    {
        return held_.requiredProof(now);
    }

    /// The screen was drawn on there.
    void noteScreenDamage(const PixelRegion& damage);
    /// A window that is not left out changed there: below the mask the screen does not tell.
    void noteWindowChange(const PixelRegion& region) { changedBelow_ |= region; }
    /// What was seen there, also in the frame before, may show a window that is left out.
    void distrust(const PixelRegion& region)
    {
        unseen_ |= region;
        distrusted_ |= region;
    }
    void distrustAll() { distrust(everything()); }
    /// The same everywhere but there.
    void distrustOutside(const PixelRegion& region);
    /// The picture seen last is as the screen there.
    void noteSeen(const PixelRegion& region) { unseen_ -= region; }

    /// How to draw `dirty`; to be done by the caller at once. The frame before shows what was seen in `before`.
    [[nodiscard]] Parts divide(const PixelRegion& dirty, const PixelRegion& before);

private:
    HeldPlaces held_;
    PixelRegion mask_;
    /// Where the picture seen last is not as the screen.
    PixelRegion unseen_{everything()};
    PixelRegion changedBelow_;
    /// Not to be taken from the frame before.
    PixelRegion distrusted_;
};

} // namespace nimbrale::x11
