#pragma once

#include "platform/ffmpeg/audio_encoder.h"
#include "platform/ffmpeg/encoder_effort.h"
#include "platform/ffmpeg/piece_writer.h"
#include "platform/ffmpeg/video_encoder.h"
#include "platform/ffmpeg/watched_encoder.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace nimbrale::ffmpeg {

/// An encoder on a graphics card for one movie.
struct HardwareVideo {
    /// Opened with the movie's settings. Null: the processor encodes.
    std::unique_ptr<WatchedEncoder> encoder;
    /// Called when it fails, on the thread that encodes. May be empty.
    std::function<void()> onFailure;
};

/// Encodes pictures and sound and writes the packets. All times count from the movie's start; what is earlier counts as
/// the start, for pictures, or is left out, for sound. One thread at a time. After an error only the destructor may be
/// called, unless the error was the loss of the pictures' encoder.
class MovieEncoding {
public:
    /// `descriptor` is an empty file, which is used as long as this lives. `queue` is of the queue in front.
    [[nodiscard]] static Result<std::unique_ptr<MovieEncoding>>
    create(const MovieSettings& settings, int descriptor, const QueueWatch& queue, HardwareVideo hardware = {});

    /// `waiting` pictures are in the queue, this one included.
    [[nodiscard]] Result<void> addPicture(std::shared_ptr<const AVFrame> picture, std::chrono::nanoseconds time,
                                          std::size_t waiting);
    /// The last picture is still shown at `time`, and is in the file up to then.
    [[nodiscard]] Result<void> repeatPicture(std::chrono::nanoseconds time);
    /// Keeps the sound for `encodeSound`. Only with sound in the settings.
    void addSound(const AudioBuffer& sound, std::chrono::nanoseconds time);
    /// Encodes a second of the sound that is there.
    [[nodiscard]] Result<void> encodeSound();
    /// Whether there is more sound to encode.
    [[nodiscard]] bool hasSound() const { return audio_ && audio_->hasWork(); }
    /// Whether there was a picture.
    [[nodiscard]] bool hasPicture() const { return lastPicture_ != nullptr; }
    /// The pictures' encoder failed or does not answer, which was told by an error. What it had given is kept, the last
    /// picture stands until the movie's end, and later ones are left out; sound is still taken.
    [[nodiscard]] bool hasLostVideo() const { return hasLostVideo_; }
    /// The movie ends at `time`. There was a picture. The movie is whole also where the error is the loss of the
    /// pictures' encoder.
    [[nodiscard]] Result<void> finish(std::chrono::nanoseconds time);

private:
    MovieEncoding(const MovieVideo& settings, const QueueWatch& queue, std::function<void()> onHardwareFailure);

    [[nodiscard]] Result<void> openVideo(std::unique_ptr<WatchedEncoder> hardware);
    [[nodiscard]] const AVCodecContext& videoContext() const;
    [[nodiscard]] Result<void> encodePicture(std::int64_t tick);
    [[nodiscard]] bool isKeyPictureDue(std::int64_t tick) const;
    [[nodiscard]] bool takeLessEffort();
    void loseVideo();

    MovieVideo settings_;
    EncoderEffort effort_ = EncoderEffort::careful;
    QueueWatch watch_;
    std::function<void()> onHardwareFailure_;
    /// One of these encodes. A graphics card knows no other effort, and no other encoder writes the same headers.
    std::unique_ptr<WatchedEncoder> hardware_;
    std::unique_ptr<VideoEncoder> processor_;
    bool hasLostVideo_ = false;
    std::unique_ptr<AudioEncoder> audio_;
    std::unique_ptr<PieceWriter> pieces_;
    std::shared_ptr<const AVFrame> lastPicture_;
    std::int64_t lastTick_ = -1;
    std::int64_t lastKeyTick_ = -1;
};

} // namespace nimbrale::ffmpeg
