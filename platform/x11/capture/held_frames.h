#pragma once

#include "platform/surface.h"

#include <functional>
#include <memory>
#include <mutex>

namespace nimbrale::x11 {

/// Counts the frames of one stream that are on the way or held by a consumer. Any thread.
class HeldFrames : public std::enable_shared_from_this<HeldFrames> {
public:
    /// `wake` lets the capture thread come by; called on whichever thread lets go of a frame.
    explicit HeldFrames(std::function<void()> wake) : wake_(std::move(wake)) {}

    /// The same frame, counted until nobody holds what is returned.
    [[nodiscard]] std::shared_ptr<const Surface> count(std::shared_ptr<const Surface> frame);
    /// Whether `limit` frames are held. When one of them is let go of, `wake` is called once.
    [[nodiscard]] bool areAsManyAs(int limit);

private:
    void release();

    const std::function<void()> wake_;
    std::mutex mutex_;
    int count_ = 0;
    bool isWakeWanted_ = false;
};

} // namespace nimbrale::x11
