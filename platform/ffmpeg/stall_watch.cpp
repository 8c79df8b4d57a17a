#include "platform/ffmpeg/stall_watch.h"

#include <algorithm>

namespace nimbrale::ffmpeg {

bool StallWatch::isStalled(TimePoint now)
{
    constexpr std::chrono::steady_clock::duration longestLook = std::chrono::seconds(1);
    const std::uint64_t changes = changes_;
    const bool isUnchanged = changes % 2 == 1 && changes == seenChanges_ && lastLook_;
    waited_ = isUnchanged ? waited_ + std::min(now - *lastLook_, longestLook) : std::chrono::steady_clock::duration(0);
    seenChanges_ = changes;
    lastLook_ = now;
    return waited_ > patience_;
}

} // namespace nimbrale::ffmpeg
