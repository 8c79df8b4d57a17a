#include "platform/x11/capture/frame_pacer.h"

#include <algorithm>

namespace nimbrale::x11 {

StreamTiming FramePacer::timing(Clock::time_point now, ChangeExpectation expectation) const
{
    const Duration timeToTick = lastTick_ + interval_ - now;
    if (expectation == ChangeExpectation::none)
        return {timeToTick, std::nullopt};
    if (expectation == ChangeExpectation::certain)
        return {timeToTick, timeToTick};
    return {timeToTick, lastTurn_ + interval_ - now};
}

void FramePacer::useTick(Clock::time_point now)
{
    const bool isContinuous = now - lastTick_ >= interval_ && now - lastTick_ < 2 * interval_;
    lastTick_ = isContinuous ? lastTick_ + interval_ : now;
    lastTurn_ = lastTick_;
}

void FramePacer::dismissPossibility(Clock::time_point now)
{
    // There is no rhythm to keep, of which nobody sees anything: what comes seldom would be looked into twice as often.
    lastTurn_ = now;
}

FramePacer::Duration boundedInterval(const FrameInterval& interval)
{
    static constexpr std::chrono::duration<double> shortest = std::chrono::milliseconds(1);
    static constexpr std::chrono::duration<double> longest = std::chrono::hours(1);
    if (interval.timescale <= 0 || interval.value < 0)
        return std::chrono::seconds(1);
    const std::chrono::duration<double> seconds(static_cast<double>(interval.value) / interval.timescale);
    return std::chrono::duration_cast<FramePacer::Duration>(std::clamp(seconds, shortest, longest));
}

ThreadWait threadWait(const std::vector<StreamTiming>& streams, std::optional<FramePacer::Duration> timeToPoll)
{
    static constexpr auto atOnce = FramePacer::Duration::zero();
    ThreadWait wait;
    const auto shorten = [&wait](FramePacer::Duration time) {
        time = std::max(time, atOnce);
        wait.timeout = std::min(wait.timeout.value_or(time), time);
    };
    std::optional<FramePacer::Duration> nextTick;
    for (const StreamTiming& stream : streams) {
        nextTick = std::min(nextTick.value_or(stream.timeToTick), stream.timeToTick);
        if (stream.timeToTurn)
            shorten(*stream.timeToTurn);
    }
    if (nextTick && *nextTick > atOnce && *nextTick <= maximumEventLatency) {
        shorten(*nextTick);
        wait.isEndedByServer = false;
    } else if (timeToPoll) {
        shorten(*timeToPoll);
    }
    return wait;
}

} // namespace nimbrale::x11
