#pragma once

#include "platform/geometry.h"
#include "platform/main_queue.h"
#include "platform/observers.h"
#include "platform/screens.h"

#include <chrono>
#include <functional>
#include <memory>

namespace nimbrale {

/// Tells where the pointer is, up to 30 times a second while it moves in an area or out of it, and not at all while it
/// rests; of moves elsewhere it may tell or not. Where the desktop does not tell of moves, it tells all the time. Main
/// thread only.
class PointerWatcher {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// `area` and what `onPosition` gets are in screen coordinates; it may destroy the watcher. `screens` and `queue`
    /// must outlive it.
    PointerWatcher(Screens& screens, MainQueue& queue, const Rect& area, std::function<void(Point position)> onPosition,
                   std::function<TimePoint()> now = std::chrono::steady_clock::now);
    PointerWatcher(const PointerWatcher&) = delete;
    PointerWatcher& operator=(const PointerWatcher&) = delete;

    /// Tells the position once more, not within this call, though the pointer may rest: what lies under it may have
    /// moved. What counts from then on is `area`.
    void restart(const Rect& area);

private:
    void start();
    void follow();
    [[nodiscard]] std::chrono::nanoseconds timeToPoll() const;
    void pollIn(std::chrono::nanoseconds wait);
    void poll();

    Screens& screens_;
    MainQueue& queue_;
    std::function<void(Point)> onPosition_;
    std::function<TimePoint()> now_;
    TimePoint lastPoll_;
    /// Null until the next move, if `moves_` tells of it.
    std::unique_ptr<Timer> timer_;
    /// Null where the desktop does not tell of moves.
    Subscription moves_;
};

} // namespace nimbrale
