#include "platform/ffmpeg/encoder_effort.h"

#include <algorithm>
#include <cstdint>

namespace nimbrale::ffmpeg {

namespace {

/// Pixels per second that half a core encodes with care, as measured on a machine of some years ago.
constexpr std::int64_t carefulPixelsPerThread = std::int64_t{1920} * 1080 * 30;

} // namespace

int encoderThreads(unsigned processors)
{
    // Capturing and showing need one core, and the meeting another.
    return std::clamp(static_cast<int>(processors) / 2, 1, 2);
}

EncoderEffort initialEffort(const MovieVideo& video, unsigned processors)
{
    const std::int64_t pixels = std::int64_t{video.width} * video.height * video.expectedFrameRate;
    return pixels <= carefulPixelsPerThread * encoderThreads(processors) ? EncoderEffort::careful
                                                                         : EncoderEffort::quick;
}

void QueueWatch::note(std::size_t waiting, std::chrono::nanoseconds now)
{
    if (2 * waiting < capacity_) {
        fullSince_.reset();
        isOverloaded_ = false;
        return;
    }
    if (!fullSince_)
        fullSince_ = now;
    isOverloaded_ = now - *fullSince_ >= patience_;
}

} // namespace nimbrale::ffmpeg
