#pragma once

#include "platform/ffmpeg/movie_work.h"
#include "platform/ffmpeg/yuv_pictures.h"
#include "platform/movie_writer.h"

#include <chrono>
#include <memory>
#include <optional>

namespace nimbrale::ffmpeg {

class FfmpegMovieWriter final : public MovieWriter {
public:
    /// When pictures pile up for as long as `withEncoder`, the processor encodes them with less effort; a disk that
    /// does not answer for as long as `withDisk` has stalled the writer.
    struct Patience {
        std::chrono::nanoseconds withEncoder = QueueWatch::usualPatience;
        std::chrono::milliseconds withDisk = StallWatch::usualPatience;
    };

    /// See `Movies::create`. Waits for the disk. Any thread.
    [[nodiscard]] static Result<std::unique_ptr<MovieWriter>>
    create(const MovieSettings& settings, const Patience& patience, HardwareVideo hardware = {});
    ~FfmpegMovieWriter() override;
    FfmpegMovieWriter(const FfmpegMovieWriter&) = delete;
    FfmpegMovieWriter& operator=(const FfmpegMovieWriter&) = delete;

    void startSession(std::chrono::nanoseconds time) override;
    [[nodiscard]] bool isReadyForVideo() const override;
    void appendVideo(const SurfaceReader::Picture& picture, std::chrono::nanoseconds time) override;
    void dropVideo() override;
    void repeatVideo(std::chrono::nanoseconds time) override;
    void appendAudio(const AudioBuffer& audio, std::chrono::nanoseconds time) override;
    void finish(std::chrono::nanoseconds time, Completion completion) override;
    void cancel() override;
    [[nodiscard]] std::optional<Error> failure() const override;
    [[nodiscard]] bool isStalled() override;

private:
    enum class Stage { writing, finishing, discarded };

    FfmpegMovieWriter(const MovieVideo& video, std::shared_ptr<MovieWork> work);

    [[nodiscard]] std::chrono::nanoseconds sinceStart(std::chrono::nanoseconds time) const;

    MovieVideo video_;
    YuvPictures pictures_;
    std::optional<std::chrono::nanoseconds> start_;
    Stage stage_ = Stage::writing;
    /// Shared with its thread, which a disk may hold up.
    std::shared_ptr<MovieWork> work_;
};

} // namespace nimbrale::ffmpeg
