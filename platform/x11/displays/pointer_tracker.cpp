#include "platform/x11/displays/pointer_tracker.h"

#include <utility>

namespace nimbrale::x11 {

namespace {

constexpr std::chrono::milliseconds longestRest{200};

} // namespace

PixelPoint PointerTracker::position()
{
    if (held_)
        return *held_;
    ask();
    return answer_.position;
}

void PointerTracker::didMove()
{
    ++moves_;
    if (isMoveAwaited_.exchange(false))
        QMetaObject::invokeMethod(
            &mainThread_, [this] { observers_.notify(); }, Qt::QueuedConnection);
}

void PointerTracker::mayHaveMoved()
{
    if (moves_ != 0)
        ++moves_;
}

Subscription PointerTracker::observeMoves(std::function<void()> observer)
{
    return moves_ == 0 ? nullptr : observers_.add(std::move(observer));
}

std::shared_ptr<void> PointerTracker::hold(PixelPoint pixel)
{
    held_ = pixel;
    return {this, [](PointerTracker* tracker) { tracker->held_.reset(); }};
}

void PointerTracker::ask()
{
    // Both before the server is asked, so that a move in between is not taken for part of the answer.
    isMoveAwaited_ = true;
    const std::uint64_t moves = moves_;
    const TimePoint now = now_();
    if (moves != 0 && moves == answer_.moves && now - answer_.time < longestRest)
        return;
    if (const auto position = askServer_())
        answer_ = {moves, now, *position};
}

} // namespace nimbrale::x11
