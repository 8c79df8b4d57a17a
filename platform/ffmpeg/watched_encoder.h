#pragma once

#include "platform/ffmpeg/hardware_encoder.h"
#include "platform/ffmpeg/video_encoder.h"

#include <chrono>
#include <cstdint>
#include <memory>

namespace nimbrale::ffmpeg {

/// An encoder on a graphics card, whose driver may hang. Its calls run on a thread of their own, and one that does not
/// return in time is left behind: nobody can end it, so the thread owns all that it touches, as long as it takes. Where
/// such a thread is still there when the process exits, the process ends without the clean-up of its libraries, which
/// would wait for it. One thread at a time.
class WatchedEncoder {
public:
    /// Opens it. `patience` is how long each call may take, and the destructor; a time in which the whole process stood
    /// still hardly counts. The error is permanent where there was no answer.
    [[nodiscard]] static Result<std::unique_ptr<WatchedEncoder>>
    create(const MovieVideo& video, const HardwareEncoder& hardware, std::chrono::milliseconds patience);
    ~WatchedEncoder();
    WatchedEncoder(const WatchedEncoder&) = delete;
    WatchedEncoder& operator=(const WatchedEncoder&) = delete;

    /// See `VideoEncoder`. Only before the first `encode`.
    [[nodiscard]] const AVCodecContext& context() const;
    /// See `VideoEncoder`. The picture is held as long as the driver needs it. After an error only the destructor may
    /// be called.
    [[nodiscard]] Result<PacketHandle> encode(std::shared_ptr<const AVFrame> picture, std::int64_t tick,
                                              PictureKind kind);

private:
    class Driver;

    explicit WatchedEncoder(std::shared_ptr<Driver> driver) : driver_(std::move(driver)) {}

    std::shared_ptr<Driver> driver_;
};

} // namespace nimbrale::ffmpeg
