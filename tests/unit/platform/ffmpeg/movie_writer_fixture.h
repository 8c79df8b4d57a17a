#pragma once

#include "platform/ffmpeg/ffmpeg_movie_writer.h"
#include "tests/fakes/log_capture.h"
#include "tests/unit/platform/ffmpeg/played_movie.h"

#include <QTemporaryDir>

#include <algorithm>
#include <future>
#include <gmock/gmock.h>
#include <random>
#include <thread>

namespace nimbrale::ffmpeg {

struct Bgr {
    std::uint8_t blue = 0;
    std::uint8_t green = 0;
    std::uint8_t red = 0;
};

/// A screen to draw on, which keeps account of what was changed as a reader does.
class Screen {
public:
    Screen(int width, int height) : pixels_(width, height) { fill({0, 0, width, height}, {}); }

    void fill(const PixelRect& rect, Bgr color)
    {
        for (int y = rect.y; y < rect.bottom(); ++y) {
            for (int x = rect.x; x < rect.right(); ++x) {
                std::byte* const pixel = pixels_.row(y) + std::ptrdiff_t{x} * PixelBuffer::bytesPerPixel;
                pixel[0] = std::byte{color.blue};
                pixel[1] = std::byte{color.green};
                pixel[2] = std::byte{color.red};
                pixel[3] = std::byte{0};
            }
        }
        changed_.push_back(rect);
    }
    void fillAll(Bgr color) { fill({0, 0, pixels_.width(), pixels_.height()}, color); }
    /// What no encoder makes small.
    void fillWithNoise(unsigned seed)
    {
        std::mt19937 random(seed);
        for (int y = 0; y < pixels_.height(); ++y) {
            for (std::size_t byte = 0; byte + 4 <= pixels_.stride(); byte += 4) {
                const auto pixel = static_cast<std::uint32_t>(random());
                std::copy_n(reinterpret_cast<const std::byte*>(&pixel), 4, pixels_.row(y) + byte);
            }
        }
        changed_.push_back({0, 0, pixels_.width(), pixels_.height()});
    }
    /// With what changed since the picture before.
    [[nodiscard]] SurfaceReader::Picture picture()
    {
        return {.pixels = &pixels_, .changed = std::exchange(changed_, {})};
    }

private:
    PixelBuffer pixels_;
    std::vector<PixelRect> changed_;
};

/// Makes movies in a folder of its own, faster than they are shown.
class MovieWriterTest : public testing::Test {
protected:
    using nanoseconds = std::chrono::nanoseconds;

    /// No round number: nothing may count from the clock's zero.
    static constexpr nanoseconds start = std::chrono::seconds(123456) + nanoseconds(789);

    MovieWriterTest()
    {
        // What a reader says of pieces that are being written.
        av_log_set_level(AV_LOG_QUIET);
    }

    [[nodiscard]] MovieSettings settingsFor(int width, int height) const
    {
        return {.file = movie,
                .video = {.width = width,
                          .height = height,
                          .averageBitRate = std::max<std::int64_t>(std::int64_t{width} * height * 3, 64000),
                          .expectedFrameRate = 30,
                          .maximumKeyFrameInterval = 60},
                .audio = std::nullopt};
    }
    /// Pictures come here as fast as they can be encoded, and pile up without that meaning anything.
    [[nodiscard]] std::unique_ptr<MovieWriter> begin(const MovieSettings& settings,
                                                     nanoseconds patience = std::chrono::hours(1))
    {
        auto writer = FfmpegMovieWriter::create(settings, {.withEncoder = patience});
        if (!writer)
            throw std::runtime_error(writer.error().message);
        (*writer)->startSession(start);
        return *std::move(writer);
    }
    /// Waits until the encoder takes it: none of these pictures is dropped.
    static void append(MovieWriter& writer, Screen& screen, nanoseconds time)
    {
        waitUntilReady(writer);
        writer.appendVideo(screen.picture(), start + time);
    }
    static void waitUntilReady(const MovieWriter& writer)
    {
        while (!writer.isReadyForVideo() && !writer.failure())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    /// The disk is brought up to date beside the pictures, and says only later that it cannot be.
    static void waitForFailure(const MovieWriter& writer)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!writer.failure() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    static Result<std::filesystem::path> finish(MovieWriter& writer, nanoseconds time)
    {
        std::promise<Result<std::filesystem::path>> promise;
        writer.finish(start + time, [&](auto result) { promise.set_value(std::move(result)); });
        return promise.get_future().get();
    }
    /// What a crash would leave as soon as that holds `pictures`; nothing when it doesn't come to that.
    [[nodiscard]] std::unique_ptr<PlayedMovie> piecesWith(std::size_t pictures) const
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < deadline) {
            try {
                auto pieces = std::make_unique<PlayedMovie>(movie.string() + std::string(MoviePlace::suffix));
                if (pieces->pictures().size() >= pictures)
                    return pieces;
            } catch (const std::runtime_error&) {
                // A piece was being written while it was read.
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return nullptr;
    }
    [[nodiscard]] std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            found.push_back(entry.path().filename());
        return found;
    }

    QTemporaryDir temporary;
    std::filesystem::path folder = temporary.path().toStdString();
    std::filesystem::path movie = folder / "Movie.mov";
    LogCapture log;
};

} // namespace nimbrale::ffmpeg
