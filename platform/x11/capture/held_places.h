#pragma once

#include "platform/x11/server/pixel_region.h"

#include <chrono>
#include <optional>
#include <vector>

namespace nimbrale::x11 {

/// Places that are each held for a time, and for as long as it is not proven that they were left. Pure: the time is
/// handed in.
class HeldPlaces {
public:
    using Clock = std::chrono::steady_clock;

    /// For how long a compositing manager may still show a window where it was: twice what any was seen to take.
    static constexpr std::chrono::milliseconds longestLag{250};
    /// Beyond its time a place is not held for longer than this without a proof. Only time counts in which the
    /// compositing manager was at work: what one shows that has no time may be any age.
    static constexpr std::chrono::milliseconds longestPatience{2000};

    /// How long a place is held.
    struct Hold {
        /// From when it was left.
        std::chrono::milliseconds time = longestLag;
        /// Beyond that, while it is not proven that it was left. With none it is not held for a proof at all.
        std::chrono::milliseconds patience = longestPatience;
        /// From when that is proven, and until what the screen shows then is proven as well: what a compositing manager
        /// fades or slides out begins when it hears of it, and a busy one shows the end of it late. It is waited for
        /// from the moment in which the place was left.
        std::chrono::milliseconds fade{0};
    };

    /// How far a compositing manager has got.
    struct Progress {
        /// A moment is progress enough for who knows of nothing else.
        Progress(Clock::time_point byThen = {}, Clock::duration notAtWork = {}) : proven(byThen), idle(notAtWork) {}

        /// What was left by then has been left.
        Clock::time_point proven;
        /// For how long it was not at work, of the time since this was told last.
        Clock::duration idle;
    };

    /// `place` was left when it was `now`.
    void add(const PixelRegion& place, Clock::time_point now, const Hold& hold);
    /// What `other` holds is held as long as there.
    void add(const HeldPlaces& other);
    /// Lets go of what is due.
    void release(Clock::time_point now, const Progress& progress);
    /// All that is held.
    [[nodiscard]] const PixelRegion& region() const { return region_; }
    /// The rectangle around each place, in the order in which they were added.
    [[nodiscard]] std::vector<PixelRect> bounds() const;
    /// When something may be let go of next; absent while nothing is held. Past where a proof is waited for.
    [[nodiscard]] std::optional<Clock::time_point> nextRelease() const;
    /// What has to be proven for all to be let go of as far as can be by `now`; absent for nothing.
    [[nodiscard]] std::optional<Clock::time_point> requiredProof(Clock::time_point now) const;

private:
    struct Place {
        PixelRegion region;
        Clock::time_point left;
        Clock::time_point until;
        Clock::time_point untilUnproven;
        std::chrono::milliseconds patience;
        /// Not nothing until it is proven that the place was left.
        Hold fading{};

        [[nodiscard]] bool isFading() const { return fading.fade > std::chrono::milliseconds(0); }
    };

    void add(const Place& place);
    void extendPatience(Clock::time_point now, Clock::duration idle);
    /// Those that are proven to have been left are held for their fade from now on.
    void beginFades(Clock::time_point now, Clock::time_point proven);

    std::vector<Place> places_;
    PixelRegion region_;
};

} // namespace nimbrale::x11
