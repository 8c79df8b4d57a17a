#pragma once

#include "platform/main_queue.h"

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace nimbrale {

/// Work on the main queue that waits for something to be known, but not for ever. What waits is dropped when it goes.
/// Main thread only.
class WaitingWork : public std::enable_shared_from_this<WaitingWork> {
public:
    /// Runs `work` later: soon where it is known already, else at the next `run`, or when the patience of whoever has
    /// waited longest is at its end. To be owned by a shared pointer.
    void add(MainQueue& queue, bool isKnown, std::chrono::nanoseconds patience, std::function<void()> work);
    /// What was waited for is known.
    void run();

private:
    std::vector<std::function<void()>> waiting_;
    std::unique_ptr<Timer> patience_;
};

} // namespace nimbrale
