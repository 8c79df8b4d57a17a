#pragma once

#include "platform/x11/server/pixel_region.h"

#include <chrono>
#include <optional>
#include <vector>

namespace nimbrale::x11 {

/// Places that are each held until a moment of their own. Pure: the time is handed in.
class HeldPlaces {
public:
    using Clock = std::chrono::steady_clock;

    void add(const PixelRegion& place, Clock::time_point until);
    /// Lets go of what is held no longer than `now`.
    void release(Clock::time_point now);
    /// All that is held.
    [[nodiscard]] const PixelRegion& region() const { return region_; }
    /// When something is let go of next; absent while nothing is held.
    [[nodiscard]] std::optional<Clock::time_point> nextRelease() const;

private:
    struct Place {
        PixelRegion region;
        Clock::time_point until;
    };

    std::vector<Place> places_;
    PixelRegion region_;
};

} // namespace nimbrale::x11
