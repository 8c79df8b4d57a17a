#pragma once

#include <chrono>

namespace nimbrale::x11 {

/// Decides when to ask whether a program hides the pointer, of which nothing tells. Programs hide it when it has not
/// moved for a few seconds, or when something is typed: so it is asked often for a while after each change of the
/// pointer, and then just often enough for it never to be seen longer than a second. Pure: the time is handed in.
class HidingPacer {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::nanoseconds;

    /// The pointer has moved, looks different, or was hidden or shown.
    void noteChange(TimePoint now) { lastChange_ = now; }
    void noteQuestion(TimePoint now) { lastAsked_ = now; }

    [[nodiscard]] TimePoint nextQuestion() const
    {
        const TimePoint soon = lastAsked_ + briskInterval;
        return soon < lastChange_ + briskTime ? soon : lastAsked_ + calmInterval;
    }
    [[nodiscard]] bool isDue(TimePoint now) const { return now >= nextQuestion(); }

    static constexpr std::chrono::milliseconds briskInterval{200};
    /// What is asked takes its time, too.
    static constexpr std::chrono::milliseconds calmInterval{800};
    static constexpr std::chrono::seconds briskTime{5};

private:
    TimePoint lastChange_;
    TimePoint lastAsked_;
};

} // namespace nimbrale::x11
