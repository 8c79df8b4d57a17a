#include "platform/x11/capture/pointer_follower.h"

#include <algorithm>

namespace nimbrale::x11 {

void PointerFollower::setDistance(int pixels)
{
    const Duration onItsWay = Duration(handTime) * pixels / handDistance;
    movingInterval_ = std::min<Duration>(nearInterval + onItsWay, farInterval);
}

void PointerFollower::heardChange()
{
    // One that is followed is asked for soon enough.
    if (state_ == State::following)
        return;
    nextChange_ = NextChange::mayBeUntold;
    lastAsked_ = {};
}

void PointerFollower::gotAnswer(TimePoint now, Answer answer, NextChange nextChange)
{
    lastAsked_ = now;
    nextChange_ = nextChange;
    if (answer == Answer::otherPosition) {
        lastMoved_ = now;
        if (state_ == State::settling)
            state_ = State::following;
    } else if (state_ != State::following) {
        state_ = State::resting;
    } else if (now - lastMoved_ >= shortestRest) {
        state_ = State::settling;
    }
}

std::optional<PointerFollower::Duration> PointerFollower::timeToAsk(TimePoint now) const
{
    if (state_ == State::resting && nextChange_ == NextChange::isTold)
        return std::nullopt;
    return lastAsked_ + (state_ == State::resting ? Duration(restingInterval) : movingInterval_) - now;
}

bool PointerFollower::isDue(TimePoint now) const
{
    const std::optional<Duration> time = timeToAsk(now);
    return time && *time <= Duration::zero();
}

} // namespace nimbrale::x11
