#pragma once

#include "platform/x11/server/correction_limiter.h"

#include <chrono>
#include <cstddef>

namespace nimbrale::x11 {

/// Tells a place that others insist on from one that a window merely came to lie over. Belongs to one thread.
class AreaContest {
public:
    using Clock = CorrectionLimiter::Clock;

    /// That many raises in front of ours within that span are no accident.
    static constexpr std::size_t count = 10;
    static constexpr std::chrono::seconds span{10};

    /// Another program has put a window in front of ours. True where that has happened `count` times within `span`.
    [[nodiscard]] bool note(Clock::time_point now)
    {
        raises_.note(now);
        return raises_.delay(now) > Clock::duration::zero();
    }

private:
    CorrectionLimiter raises_{count, span};
};

} // namespace nimbrale::x11
