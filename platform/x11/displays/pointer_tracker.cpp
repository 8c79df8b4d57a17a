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
        // Each would wake the main thread.
        if (!concernsAnybody(position))
            return;
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

bool PointerTracker::concernsAnybody(std::optional<PixelPoint> position)
{
    bool isConcern = false;
    for (const auto& entry : watches_) {
        const auto watch = entry.lock();
        if (!watch)
            continue;
        const bool holdsPointer = !position || watch->pixels.contains(*position);
        isConcern = isConcern || holdsPointer || watch->mayHoldPointer;
        watch->mayHoldPointer = holdsPointer;
    }
    return isConcern;
}

Subscription PointerTracker::observeMoves(std::function<PixelRect()> place, std::function<void()> observer)
{
    if (moves_ == 0)
        return nullptr;
    const PixelRect pixels = place();
    auto watch = std::make_shared<Watch>(Watch{std::move(place), pixels});
    {
        const std::lock_guard lock(toldMutex_);
        std::erase_if(watches_, [](const auto& entry) { return entry.expired(); });
        watches_.push_back(watch);
    }
    return std::make_shared<std::pair<std::shared_ptr<Watch>, Subscription>>(std::move(watch),
                                                                             observers_.add(std::move(observer)));
}

void PointerTracker::placesMoved()
{
    const std::lock_guard lock(toldMutex_);
    for (const auto& entry : watches_) {
        if (const auto watch = entry.lock()) {
            watch->pixels = watch->place();
            watch->mayHoldPointer = true;
        }
    }
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
