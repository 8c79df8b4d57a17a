#pragma once

#include "platform/ffmpeg/av_handles.h"
#include "platform/ffmpeg/encoder_effort.h"
#include "platform/movie_writer.h"

#include <cstdint>
#include <memory>

namespace nimbrale::ffmpeg {

/// Movie times of pictures, counted from the movie's start: players keep to this clock exactly.
inline constexpr int videoTicksPerSecond = 90000;

enum class PictureKind {
    any,
    key ///< the movie can be shown from here on
};

/// H.264 by the processor. Gives every picture's packet at once: it looks at no later picture, so that a still screen
/// is in the file as soon as it was shown. One thread at a time.
class VideoEncoder {
public:
    /// Encoders of the same settings understand each other's pictures whatever their effort: one may go on where
    /// another stopped, beginning with a key picture.
    [[nodiscard]] static Result<std::unique_ptr<VideoEncoder>> create(const MovieVideo& video, EncoderEffort effort);

    /// What a muxer wants to know of the stream.
    [[nodiscard]] const AVCodecContext& context() const { return *context_; }
    /// `picture` is shown from `tick` on, which is later than the one before; its pixels are not written to before this
    /// returns. The packet's times are set, but for its duration.
    [[nodiscard]] Result<PacketHandle> encode(const AVFrame& picture, std::int64_t tick, PictureKind kind);

private:
    explicit VideoEncoder(CodecContextHandle context);

    CodecContextHandle context_;
    FrameHandle frame_;
};

} // namespace nimbrale::ffmpeg
