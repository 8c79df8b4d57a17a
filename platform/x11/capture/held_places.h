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

    /// `place` was left when it was `now`.
    void add(const PixelRegion& place, Clock::time_point now, std::chrono::milliseconds time,
             std::chrono::milliseconds patience = longestPatience);
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
    /// When the last of them was left; absent while nothing is held.
    [[nodiscard]] std::optional<Clock::time_point> lastLeft() const;

private:
    struct Place {
        PixelRegion region;
        Clock::time_point left;
        Clock::time_point until;
        Clock::time_point untilUnproven;
    };

    void add(const Place& place);

    std::vector<Place> places_;
    PixelRegion region_;
};

} // namespace nimbrale::x11
