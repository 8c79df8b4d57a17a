#pragma once

#include "platform/ffmpeg/av_handles.h"
#include "platform/result.h"

#include <string>

struct AVBufferRef;

namespace nimbrale::ffmpeg {

/// Brings pictures in planar YUV 4:2:0 into the form that encoders on hardware take: NV12, in memory or on a card. One
/// thread at a time.
class HardwarePictures {
public:
    /// Makes `context`, whose size is set and which is not open yet, take such pictures. `device` is the card's device
    /// file; where it is empty, pictures stay in memory.
    [[nodiscard]] static Result<HardwarePictures> create(AVCodecContext& context, const std::string& device);

    /// A copy of `picture`, which has the context's size.
    [[nodiscard]] Result<FrameHandle> copy(const AVFrame& picture) const;

private:
    explicit HardwarePictures(BufferHandle card) : card_(std::move(card)) {}

    /// Where the card's pictures come from; null where they stay in memory.
    BufferHandle card_;
};

} // namespace nimbrale::ffmpeg
