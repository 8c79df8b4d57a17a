#pragma once

#include "platform/ffmpeg/av_handles.h"
#include "platform/ffmpeg/encoder_effort.h"
#include "platform/ffmpeg/hardware_encoder.h"
#include "platform/ffmpeg/hardware_pictures.h"
#include "platform/movie_writer.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace nimbrale::ffmpeg {

/// Movie times of pictures, counted from the movie's start: players keep to this clock exactly.
inline constexpr int videoTicksPerSecond = 90000;

enum class PictureKind {
    any,
    key ///< the movie can be shown from here on
};

/// H.264, by the processor or by a graphics card. Gives every picture's packet at once: it looks at no later picture,
/// so that a still screen is in the file as soon as it was shown. One thread at a time.
class VideoEncoder {
public:
    /// By the processor. Encoders of the same settings understand each other's pictures whatever their effort: one may
    /// go on where another stopped, beginning with a key picture.
    [[nodiscard]] static Result<std::unique_ptr<VideoEncoder>> create(const MovieVideo& video, EncoderEffort effort);
    /// By a graphics card. What a driver does is not known before: `probeEncoder` finds out.
    [[nodiscard]] static Result<std::unique_ptr<VideoEncoder>> createOnHardware(const MovieVideo& video,
                                                                                const HardwareEncoder& hardware);

    /// What a muxer wants to know of the stream.
    [[nodiscard]] const AVCodecContext& context() const { return *context_; }
    /// `picture` is shown from `tick` on, which is later than the one before; its pixels are not written to before this
    /// returns. The packet's times are set, but for its duration.
    [[nodiscard]] Result<PacketHandle> encode(const AVFrame& picture, std::int64_t tick, PictureKind kind);

private:
    VideoEncoder(CodecContextHandle context, std::optional<HardwarePictures> hardware);

    [[nodiscard]] Result<FrameHandle> frameOf(const AVFrame& picture) const;

    CodecContextHandle context_;
    /// Absent for the processor, which reads pictures where they are.
    std::optional<HardwarePictures> hardware_;
};

} // namespace nimbrale::ffmpeg
