#pragma once

#include "platform/ffmpeg/movie_encoding.h"
#include "platform/ffmpeg/movie_place.h"
#include "platform/ffmpeg/stall_watch.h"
#include "platform/ffmpeg/yuv_pictures.h"
#include "platform/movie_writer.h"
#include "platform/serial_queue.h"

#include <atomic>
#include <mutex>

namespace nimbrale::ffmpeg {

class FfmpegMovieWriter final : public MovieWriter {
public:
    /// When pictures pile up for as long as `withEncoder`, the processor encodes them with less effort; a disk that
    /// does not answer for as long as `withDisk` is a failure.
    struct Patience {
        std::chrono::nanoseconds withEncoder = QueueWatch::usualPatience;
        std::chrono::milliseconds withDisk = StallWatch::usualPatience;
    };

    /// See `Movies::create`.
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

private:
    enum class Stage { writing, finishing, discarded };

    FfmpegMovieWriter(const MovieSettings& settings, MoviePlace place, std::chrono::milliseconds patienceWithDisk);

    [[nodiscard]] std::chrono::nanoseconds sinceStart(std::chrono::nanoseconds time) const;

    // These run on the writer's thread.
    [[nodiscard]] bool isEncoding() const;
    void encode(const std::function<Result<void>(MovieEncoding&)>& step);
    void encodeSound();
    [[nodiscard]] Result<std::filesystem::path> finishMovie(std::chrono::nanoseconds end);
    void noteFailure(Error error);

    MovieVideo video_;
    std::size_t queueCapacity_;
    // The caller's thread.
    YuvPictures pictures_;
    std::optional<std::chrono::nanoseconds> start_;
    Stage stage_ = Stage::writing;
    // The writer's thread.
    MoviePlace place_;
    std::unique_ptr<MovieEncoding> encoding_;
    bool isSoundPosted_ = false;
    /// Nothing may be written any more.
    bool isBroken_ = false;
    // Both.
    std::atomic<std::size_t> waiting_ = 0;
    std::atomic<std::size_t> dropped_ = 0;
    std::atomic<bool> isDiscarded_ = false;
    mutable std::mutex mutex_;
    /// Who looks is within the lock.
    mutable StallWatch stall_;
    mutable std::optional<Error> failure_;
    bool isFinishing_ = false;
    /// Last, so that it ends first.
    SerialQueue queue_;
};

} // namespace nimbrale::ffmpeg
