#include "platform/pointer_watcher.h"

#include <chrono>
#include <utility>

namespace nimbrale {

namespace {

constexpr std::chrono::nanoseconds pollInterval{std::chrono::nanoseconds(std::chrono::seconds(1)) / 30};

} // namespace

PointerWatcher::PointerWatcher(Screens& screens, MainQueue& queue, std::function<void(Point)> onPosition)
    : screens_(screens), queue_(queue), onPosition_(std::move(onPosition)),
      moves_(screens.observeMouse([this] { restart(); }))
{
    restart();
}

void PointerWatcher::restart()
{
    lastPosition_.reset();
    if (!timer_)
        timer_ = queue_.scheduleRepeating(pollInterval, [this] { poll(); });
}

void PointerWatcher::poll()
{
    const Point position = screens_.mouseLocation();
    // A pointer that rests needs no further question, and each would wake the processor.
    const bool rests = moves_ && lastPosition_ == position;
    lastPosition_ = position;
    const auto onPosition = onPosition_;
    if (rests)
        timer_.reset();
    onPosition(position);
}

} // namespace nimbrale
