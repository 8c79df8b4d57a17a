#pragma once

#include <algorithm>
#include <chrono>

namespace nimbrale::x11 {

/// For how long a compositing manager has been at work, by what it was seen to paint. One that has no time paints
/// nothing, and then nothing is known of what the screen is about to show. Pure: the time is handed in.
class PaintingTime {
public:
    using Clock = std::chrono::steady_clock;

    /// How much of the time between two paintings counts: one that paints rarely is not at work in between.
    static constexpr std::chrono::milliseconds mostBetween{150};
    /// One that has painted nothing for that long has no time, or nothing to paint.
    static constexpr std::chrono::milliseconds longestRest{1000};

    void notePainted(Clock::time_point now)
    {
        atWork_ += std::min<Clock::duration>(now - painted_, mostBetween);
        painted_ = now;
    }

    /// How much of the time since this was asked last it was not at work.
    [[nodiscard]] Clock::duration takeIdle(Clock::time_point now)
    {
        const Clock::duration passed = now - asked_;
        asked_ = now;
        const Clock::duration counted = std::min(passed, atWork_);
        // What was painted is found in the time after it: some of that is yet to pass.
        atWork_ = std::min<Clock::duration>(atWork_ - counted, mostBetween);
        return passed - counted;
    }

    [[nodiscard]] bool isResting(Clock::time_point now) const { return now - painted_ > longestRest; }

private:
    Clock::time_point painted_;
    Clock::time_point asked_;
    Clock::duration atWork_{0};
};

} // namespace nimbrale::x11
