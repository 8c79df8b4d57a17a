#pragma once

#include "platform/geometry.h"
#include "platform/main_queue.h"
#include "platform/observers.h"
#include "platform/screens.h"

#include <functional>
#include <memory>
#include <optional>

namespace nimbrale {

/// Tells where the pointer is, 30 times a second while it moves and not at all while it rests. Where the desktop does
/// not tell of moves, it tells all the time. Main thread only.
class PointerWatcher {
public:
    /// `onPosition` gets screen coordinates and may destroy the watcher. `screens` and `queue` must outlive it.
    PointerWatcher(Screens& screens, MainQueue& queue, std::function<void(Point position)> onPosition);
    PointerWatcher(const PointerWatcher&) = delete;
    PointerWatcher& operator=(const PointerWatcher&) = delete;

    /// Tells the position once more, though the pointer may rest: what lies under it may have moved.
    void restart();

private:
    void poll();

    Screens& screens_;
    MainQueue& queue_;
    std::function<void(Point)> onPosition_;
    /// Null while the pointer rests, if `moves_` tells when it moves on.
    std::unique_ptr<Timer> timer_;
    /// Null where the desktop does not tell of moves.
    Subscription moves_;
    std::optional<Point> lastPosition_;
};

} // namespace nimbrale
