#pragma once

#include "platform/ffmpeg/ffmpeg_movie_writer.h"
#include "recording/recording_pipeline.h"
#include "tests/fakes/fake_surface.h"

#include <chrono>
#include <filesystem>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>

namespace nimbrale::test {

/// A recording that is fed by the test, with the times of a clock of the test's own: faster than what it shows.
class LongRecording {
public:
    static constexpr int width = 64;
    static constexpr int height = 48;
    static constexpr int framesPerSecond = 15;

    /// With the writer of real movies.
    explicit LongRecording(const std::filesystem::path& movie) : LongRecording(makeWriter(movie)) {}
    explicit LongRecording(std::unique_ptr<MovieWriter> writer)
        : writer_(*writer), pipeline_(std::move(writer), std::make_unique<Reader>(brightness_), true)
    {}

    /// A picture that is bright or dark, at its time.
    void show(bool isBright, std::chrono::nanoseconds time)
    {
        waitUntilReady();
        brightness_ = isBright ? std::byte{235} : std::byte{16};
        pipeline_.takeScreen(
            {OutputType::screen, FrameStatus::complete, std::make_shared<FakeSurface>(width, height), time});
    }
    void hear(const AudioBuffer& audio, std::chrono::nanoseconds time) { pipeline_.takeAudio(audio, time); }
    void tick(std::chrono::nanoseconds now) { pipeline_.tick(now); }
    /// The movie.
    std::filesystem::path finish(std::chrono::nanoseconds now)
    {
        std::promise<RecordingPipeline::MovieResult> promise;
        pipeline_.finish(now,
                         [&promise](RecordingPipeline::MovieResult movie) { promise.set_value(std::move(movie)); });
        const RecordingPipeline::MovieResult movie = promise.get_future().get();
        if (!movie)
            throw std::runtime_error("the movie was not saved");
        return *movie;
    }

private:
    /// Pictures of one brightness.
    class Reader final : public SurfaceReader {
    public:
        explicit Reader(const std::byte& brightness) : brightness_(brightness) {}

        [[nodiscard]] Result<Picture> read(const Surface& surface) override
        {
            for (int y = 0; y < height; ++y)
                std::fill_n(pixels_.row(y), pixels_.stride(), brightness_);
            return Picture{&pixels_, surface.changedSince(0)};
        }

    private:
        const std::byte& brightness_;
        PixelBuffer pixels_{width, height};
    };

    static std::unique_ptr<MovieWriter> makeWriter(const std::filesystem::path& movie)
    {
        const MovieSettings settings{.file = movie,
                                     .video = {.width = width,
                                               .height = height,
                                               .averageBitRate = 64'000,
                                               .expectedFrameRate = framesPerSecond,
                                               .maximumKeyFrameInterval = 2 * framesPerSecond},
                                     .audio = MovieAudio{}};
        // Pictures pile up here without that meaning anything.
        auto writer = ffmpeg::FfmpegMovieWriter::create(settings, {.withEncoder = std::chrono::hours(1)});
        if (!writer)
            throw std::runtime_error(writer.error().message);
        return *std::move(writer);
    }
    void waitUntilReady() const
    {
        while (!writer_.isReadyForVideo() && !writer_.failure())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    std::byte brightness_{16};
    MovieWriter& writer_;
    RecordingPipeline pipeline_;
};

} // namespace nimbrale::test
