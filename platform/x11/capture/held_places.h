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
    /// Beyond its time a place is not held for longer than this without a proof.
    static constexpr std::chrono::milliseconds longestPatience{2000};

    /// How long a place is held.
    struct Hold {
        /// From when it was left.
        std::chrono::milliseconds time = longestLag;
        /// Beyond that, while it is not proven that it was left.
        std::chrono::milliseconds patience = longestPatience;
        /// From when that is proven, and until what the screen shows then is proven as well: what a compositing manager
        /// fades or slides out begins when it hears of it, and a busy one shows the end of it late. It is waited for
        /// from the moment in which the place was left.
        std::chrono::milliseconds fade{0};
    };

    /// `place` was left when it was `now`.
    void add(const PixelRegion& place, Clock::time_point now, const Hold& hold);
    /// What `other` holds is held as long as there.
    void add(const HeldPlaces& other);
    /// Lets go of what is due. What was left by `proven` has been left.
    void release(Clock::time_point now, Clock::time_point proven);
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
        /// Not nothing until it is proven that the place was left.
        Hold fading{};

        [[nodiscard]] bool isFading() const { return fading.fade > std::chrono::milliseconds(0); }
    };

    void add(const Place& place);
    /// Those that are proven to have been left are held for their fade from now on.
    void beginFades(Clock::time_point now, Clock::time_point proven);

    std::vector<Place> places_;
    PixelRegion region_;
};

} // namespace nimbrale::x11
