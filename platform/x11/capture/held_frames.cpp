#include "platform/x11/capture/held_frames.h"

#include <utility>

namespace nimbrale::x11 {

std::shared_ptr<const Surface> HeldFrames::count(std::shared_ptr<const Surface> frame)
{
    {
        const std::lock_guard lock(mutex_);
        ++count_;
    }
    const Surface* const raw = frame.get();
    return {raw, [self = shared_from_this(), frame = std::move(frame)](const Surface*) mutable {
                // Its pixmap is free before anybody is told.
                frame.reset();
                self->release();
            }};
}

bool HeldFrames::areAsManyAs(int limit)
{
    const std::lock_guard lock(mutex_);
    isWakeWanted_ = count_ >= limit;
    return isWakeWanted_;
}

void HeldFrames::release()
{
    bool isWakeWanted = false;
    {
        const std::lock_guard lock(mutex_);
        --count_;
        isWakeWanted = std::exchange(isWakeWanted_, false);
    }
    if (isWakeWanted)
        wake_();
}

} // namespace nimbrale::x11
