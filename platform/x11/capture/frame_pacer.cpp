#include "platform/x11/capture/frame_pacer.h"

#include <algorithm>

namespace nimbrale::x11 {

void FramePacer::useTick(Clock::time_point now)
{
    const bool isContinuous = now - lastTick_ < 2 * interval_;
    lastTick_ = isContinuous ? lastTick_ + interval_ : now;
}

ThreadWait threadWait(const std::vector<StreamTiming>& streams, std::optional<FramePacer::Duration> timeToPoll)
{
    constexpr auto atOnce = FramePacer::Duration::zero();
    ThreadWait wait;
    const auto shorten = [&wait](FramePacer::Duration time) {
        wait.timeout = std::min(wait.timeout.value_or(time), time);
    };
    std::optional<FramePacer::Duration> nextTick;
    for (const StreamTiming& stream : streams) {
        const FramePacer::Duration time = std::max(stream.timeToTick, atOnce);
        nextTick = std::min(nextTick.value_or(time), time);
        if (stream.demand == StreamDemand::frame)
            shorten(time);
    }
    if (nextTick && *nextTick > atOnce && *nextTick <= maximumEventLatency) {
        shorten(*nextTick);
        wait.isEndedByServer = false;
    } else if (timeToPoll) {
        shorten(std::max(*timeToPoll, atOnce));
    }
    return wait;
}

} // namespace nimbrale::x11
