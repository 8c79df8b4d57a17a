#include "platform/pointer_watcher.h"

#include <chrono>
#include <utility>

namespace nimbrale {

namespace {

constexpr std::chrono::nanoseconds pollInterval{std::chrono::nanoseconds(std::chrono::seconds(1)) / 30};

/// A move that comes almost as late as that is not put off: it would take another timer.
constexpr std::chrono::milliseconds tolerance{5};

} // namespace

PointerWatcher::PointerWatcher(Screens& screens, MainQueue& queue, std::function<void(Point)> onPosition,
                               std::function<TimePoint()> now)
    : screens_(screens), queue_(queue), onPosition_(std::move(onPosition)), now_(std::move(now)), lastPoll_(now_()),
      moves_(screens.observePointer([this] { restart(); }))
{
    restart();
}

void PointerWatcher::restart()
{
    if (timer_)
        return;
    if (!moves_) {
        timer_ = queue_.scheduleRepeating(pollInterval, [this] { poll(); });
        return;
    }
    const std::chrono::nanoseconds wait = lastPoll_ + pollInterval - now_();
    if (wait <= tolerance) {
        poll();
        return;
    }
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
