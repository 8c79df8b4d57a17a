#pragma once

#include "platform/screen_capture.h"

#include <chrono>
#include <optional>
#include <vector>

namespace nimbrale::x11 {

/// What is known of a stream's source before the server is asked.
enum class ChangeExpectation {
    none,     ///< it shows what the last captured frame shows
    possible, ///< something happened that may be seen in it or not
    certain   ///< something in it changed
};

/// When a stream's turn is.
struct StreamTiming {
    using Duration = std::chrono::nanoseconds;

    /// There is no frame before that.
    Duration timeToTick{};
    /// When the server is to be asked for what changed, and a frame to be composed if something did; absent while
    /// there is no reason to.
    std::optional<Duration> timeToTurn;

    [[nodiscard]] bool isDue() const { return timeToTurn && *timeToTurn <= Duration::zero(); }
};

/// When one stream may have its next captured frame. After idleness a frame is due at once and its moment starts a new
/// rhythm; while changes go on, frames keep to the ticks of that rhythm. A mere possibility of a change is looked into
/// once an interval, however often it comes up, but holds up no change that is certain. Pure: the time is handed in.
class FramePacer {
public:
    using Clock = std::chrono::steady_clock;
    using Duration = StreamTiming::Duration;

    /// The shortest time between two frames. A shorter or longer one counts from the last tick on.
    void setInterval(Duration interval) { interval_ = interval; }

    [[nodiscard]] StreamTiming timing(Clock::time_point now, ChangeExpectation expectation) const;

    /// The stream's turn came at `now`, and there was a frame, or there had to be one.
    void useTick(Clock::time_point now);
    /// The stream's turn came at `now` for a mere possibility, and nothing had changed.
    void dismissPossibility(Clock::time_point now);

private:
    Duration interval_{};
    Clock::time_point lastTick_;
    Clock::time_point lastTurn_; // Never before the last tick.
};

/// The interval that a stream asks for, within bounds: with none at all the capture thread would never rest. One
/// without a meaning (a rate of zero or less in the settings) is one second: slow, but alive.
[[nodiscard]] FramePacer::Duration boundedInterval(const FrameInterval& interval);

/// How the capture thread waits until there is something to do.
struct ThreadWait {
    /// Absent: until it is woken.
    std::optional<FramePacer::Duration> timeout;
    /// Whether the server's events end the wait. Between ticks they pile up cheaply, and each would wake the processor.
    bool isEndedByServer = true;

    bool operator==(const ThreadWait&) const = default;
};

/// `timeToPoll`: when the thread has to come by although nobody tells of a change; absent for never.
[[nodiscard]] ThreadWait threadWait(const std::vector<StreamTiming>& streams,
                                    std::optional<FramePacer::Duration> timeToPoll);

/// For how long events of the server may wait for a tick: others go by the pointer's moves, which come with them.
inline constexpr std::chrono::milliseconds maximumEventLatency{50};

} // namespace nimbrale::x11
