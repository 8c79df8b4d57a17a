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
    // Before anything is asked, so that no move is missed after the answer.
    isMoveAwaited_ = true;
    ask();
    return answer_.position;
}

void PointerTracker::didMove(std::optional<PixelPoint> position)
{
    {
        const std::lock_guard lock(toldMutex_);
        const std::uint64_t moves = ++moves_;
        if (position)
            told_ = {moves, now_(), *position};
    }
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
    takeWhatWasTold();
    // Read before the server is asked, so that a move in between is not taken for part of the answer.
    const std::uint64_t moves = moves_;
    const TimePoint now = now_();
    if (moves != 0 && moves == answer_.moves && now - answer_.time < longestRest)
        return;
    if (const auto position = askServer_())
        answer_ = {moves, now, *position};
}

void PointerTracker::takeWhatWasTold()
{
    const std::lock_guard lock(toldMutex_);
    if (told_.moves > answer_.moves)
        answer_ = told_;
}

} // namespace nimbrale::x11
