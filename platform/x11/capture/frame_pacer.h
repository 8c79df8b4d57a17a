#pragma once

#include <chrono>
#include <optional>
#include <vector>

namespace nimbrale::x11 {

/// When one stream may have its next captured frame. After idleness a frame is due at once and its moment starts a new
/// rhythm; while changes go on, frames keep to the ticks of that rhythm. Pure: the time is handed in.
class FramePacer {
public:
    using Clock = std::chrono::steady_clock;
    using Duration = std::chrono::nanoseconds;

    /// The shortest time between two frames. A shorter or longer one counts from the last tick on.
    void setInterval(Duration interval) { interval_ = interval; }
    [[nodiscard]] Duration interval() const { return interval_; }

    /// Zero or less once the tick has come.
    [[nodiscard]] Duration timeToTick(Clock::time_point now) const { return lastTick_ + interval_ - now; }
    [[nodiscard]] bool isTickDue(Clock::time_point now) const { return timeToTick(now) <= Duration::zero(); }
    /// The tick that was due at `now` is used up.
    void useTick(Clock::time_point now);

private:
    Duration interval_{};
    Clock::time_point lastTick_;
};

/// What a stream asks of the capture thread.
enum class StreamDemand {
    none,     ///< nothing has changed
    frame,    ///< something may have changed
    handOver, ///< something may have changed, but the consumer has not yet taken the frame before; it wakes the thread
};

struct StreamTiming {
    FramePacer::Duration timeToTick{};
    StreamDemand demand = StreamDemand::none;
};

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
