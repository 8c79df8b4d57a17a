#pragma once

#include <chrono>
#include <cstddef>
#include <deque>

namespace nimbrale::x11 {

/// Paces what is put right again and again because another program insists on undoing it, so that two who insist leave
/// the machine some rest. Belongs to one thread.
class CorrectionLimiter {
public:
    using Clock = std::chrono::steady_clock;

    /// At most `most` corrections within any `span`.
    CorrectionLimiter(std::size_t most, Clock::duration span) : most_(most), span_(span) {}

    /// How long the next correction has to wait; zero when it may be made at once.
    [[nodiscard]] Clock::duration delay(Clock::time_point now)
    {
        while (!corrections_.empty() && now - corrections_.front() >= span_)
            corrections_.pop_front();
        if (corrections_.size() < most_)
            return Clock::duration::zero();
        return corrections_[corrections_.size() - most_] + span_ - now;
    }
    /// A correction was made.
    void note(Clock::time_point now) { corrections_.push_back(now); }

private:
    std::size_t most_;
    Clock::duration span_;
    std::deque<Clock::time_point> corrections_;
};

} // namespace nimbrale::x11
