#include "platform/waiting_work.h"

#include <utility>

namespace nimbrale {

void WaitingWork::add(MainQueue& queue, bool isKnown, std::chrono::nanoseconds patience, std::function<void()> work)
{
    waiting_.push_back(std::move(work));
    if (isKnown) {
        queue.post([weak = weak_from_this()] {
            if (const auto self = weak.lock())
                self->run();
        });
    } else if (!patience_) {
        patience_ = queue.schedule(patience, [this] { run(); });
    }
}

void WaitingWork::run()
{
    const auto timer = std::move(patience_); // This may run within its call.
    for (const auto& work : std::exchange(waiting_, {}))
        work();
}

} // namespace nimbrale
