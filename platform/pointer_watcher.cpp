#include "platform/pointer_watcher.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace nimbrale {

namespace {

constexpr std::chrono::nanoseconds pollInterval{std::chrono::nanoseconds(std::chrono::seconds(1)) / 30};

/// A move that comes almost as late as that is not put off: it would take another timer.
constexpr std::chrono::milliseconds tolerance{5};

} // namespace

PointerWatcher::PointerWatcher(Screens& screens, MainQueue& queue, const Rect& area,
                               std::function<void(Point)> onPosition, std::function<TimePoint()> now)
    : screens_(screens), queue_(queue), onPosition_(std::move(onPosition)), now_(std::move(now)), lastPoll_(now_()),
      moves_(screens.observePointer(area, [this] { follow(); }))
{
    start();
}

void PointerWatcher::restart(const Rect& area)
{
    if (moves_)
        moves_ = screens_.observePointer(area, [this] { follow(); });
    start();
}

void PointerWatcher::start()
{
    if (timer_)
        return;
    if (moves_)
        pollIn(std::max(timeToPoll(), std::chrono::nanoseconds::zero()));
    else
        timer_ = queue_.scheduleRepeating(pollInterval, [this] { poll(); });
}

void PointerWatcher::follow()
{
    if (timer_)
        return;
    const std::chrono::nanoseconds wait = timeToPoll();
    if (wait <= tolerance)
        poll();
    else
        pollIn(wait);
}

std::chrono::nanoseconds PointerWatcher::timeToPoll() const
{
    return lastPoll_ + pollInterval - now_();
}

void PointerWatcher::pollIn(std::chrono::nanoseconds wait)
{
    timer_ = queue_.schedule(wait, [this] {
        timer_.reset();
        poll();
    });
}

void PointerWatcher::poll()
{
    lastPoll_ = now_();
    const auto onPosition = onPosition_;
    onPosition(screens_.mouseLocation());
}

} // namespace nimbrale
