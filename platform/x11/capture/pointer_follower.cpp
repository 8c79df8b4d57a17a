#include "platform/x11/capture/pointer_follower.h"

namespace nimbrale::x11 {

void PointerFollower::gotAnswer(TimePoint now, Answer answer)
{
    lastAsked_ = now;
    if (answer == Answer::samePosition)
        state_ = state_ == State::following ? State::settling : State::resting;
    else if (state_ == State::settling)
        state_ = State::following;
}

PointerFollower::Duration PointerFollower::timeToAsk(TimePoint now) const
{
    return lastAsked_ + (state_ == State::resting ? restingInterval : movingInterval) - now;
}

} // namespace nimbrale::x11
