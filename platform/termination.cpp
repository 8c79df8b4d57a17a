#include "platform/termination.h"

#include <utility>

namespace nimbrale {

void Termination::ask(Answer then)
{
    waiting_.push_back(std::move(then));
    if (waiting_.size() > 1)
        return;
    const auto question = onShouldTerminate; // The call may replace it.
    const TerminateReply reply = question ? question() : TerminateReply::now;
    if (reply != TerminateReply::later)
        answerAll(reply == TerminateReply::now);
}

void Termination::reply(bool isGranted)
{
    answerAll(isGranted);
}

void Termination::answerAll(bool isGranted)
{
    // Taken away first, since who gets the answer may ask again.
    for (const Answer& answer : std::exchange(waiting_, {}))
        answer(isGranted);
}

} // namespace nimbrale
