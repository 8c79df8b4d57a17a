// A graphics card's driver that never answers: the recording ends with what there was, and nobody waits for it for
// ever.

#include "platform/ffmpeg/encoder_probe.h"
#include "platform/ffmpeg/video_encoder.h"
#include "tests/unit/platform/ffmpeg/stand_in_encoder_fixture.h"

#include <condition_variable>
#include <cstdlib>
#include <dlfcn.h>
#include <mutex>

namespace nimbrale::ffmpeg {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::StartsWith;

enum class DriverCall { open, encode, close };

/// Stands before the library's calls for encoders that take NV12, which are those on graphics cards: from some call on
/// they do not return before `release`.
class Driver {
public:
    static Driver& shared()
    {
        static Driver driver;
        return driver;
    }

    /// After `count` more calls of this kind.
    void hangIn(DriverCall call, int count = 0)
    {
        const std::lock_guard lock(mutex_);
        hanging_ = call;
        untilThen_ = count;
    }
    void release()
    {
        const std::lock_guard lock(mutex_);
        hanging_.reset();
        changed_.notify_all();
    }
    void enter(DriverCall call)
    {
        std::unique_lock lock(mutex_);
        if (hanging_ != call || untilThen_-- > 0)
            return;
        ++hung_;
        changed_.notify_all();
        changed_.wait(lock, [this] { return !hanging_; });
        --hung_;
    }
    /// Until a call hangs; false where none does.
    bool waitUntilItHangs()
    {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 10s, [this] { return hung_ > 0; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<DriverCall> hanging_;
    int untilThen_ = 0;
    int hung_ = 0;
};

/// Lets the driver go on when a test ends, however it ends.
class ReleasedDriver {
public:
    ReleasedDriver() = default;
    ~ReleasedDriver() { Driver::shared().release(); }
    ReleasedDriver(const ReleasedDriver&) = delete;
    ReleasedDriver& operator=(const ReleasedDriver&) = delete;
};

template <typename Function>
Function original(const char* name)
{
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

} // namespace
} // namespace nimbrale::ffmpeg

// The parameters' names in the library's headers are other ones.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

int avcodec_open2(AVCodecContext* context, const AVCodec* codec, AVDictionary** options)
{
    using namespace nimbrale::ffmpeg;
    static const auto open = original<decltype(&avcodec_open2)>("avcodec_open2");
    if (context->pix_fmt == AV_PIX_FMT_NV12)
        Driver::shared().enter(DriverCall::open);
    return open(context, codec, options);
}

int avcodec_send_frame(AVCodecContext* context, const AVFrame* frame)
{
    using namespace nimbrale::ffmpeg;
    static const auto send = original<decltype(&avcodec_send_frame)>("avcodec_send_frame");
    if (context->pix_fmt == AV_PIX_FMT_NV12)
        Driver::shared().enter(DriverCall::encode);
    return send(context, frame);
}

void avcodec_free_context(AVCodecContext** context)
{
    using namespace nimbrale::ffmpeg;
    static const auto free = original<decltype(&avcodec_free_context)>("avcodec_free_context");
    if (*context && (*context)->pix_fmt == AV_PIX_FMT_NV12)
        Driver::shared().enter(DriverCall::close);
    free(context);
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace nimbrale::ffmpeg {
namespace {

constexpr const char* noAnswer = "The recording ended because the graphics card's encoder doesn't answer any more.";

class HangingEncoderTest : public StandInEncoderTest {
protected:
    HardwareSearch::Means means{.candidates = {workingEncoder()}, .program = {}, .encoderPatience = 300ms};

    HangingEncoderTest()
    {
        settings.audio = MovieAudio{};
        means.program =
            standInProgram(programs.path().toStdString(),
                           "echo run >> \"$(dirname \"$0\")/runs\"\necho '" +
                               ProbeQuestion{settings.video, means.candidates.front()}.confirmation() + "'");
    }
    [[nodiscard]] std::unique_ptr<MovieWriter> beginOn(Movies& movies)
    {
        auto writer = beginMovie(movies, queue, settings);
        if (!writer)
            throw std::runtime_error(writer.error().message);
        (*writer)->startSession(start);
        return *std::move(writer);
    }
    /// Pictures and sound at 25 a second, each as soon as the queue has room; until `end` or until the writer fails.
    static void appendUntil(MovieWriter& writer, nanoseconds end)
    {
        Screen screen(320, 240);
        int number = 0;
        for (nanoseconds time = 0s; time < end && !writer.failure(); time += 40ms) {
            screen.fill({37 + number++ % 200, 21, 75, 91}, {255, 255, 255});
            append(writer, screen, time);
            writer.appendAudio({.samples = std::vector<float>(std::size_t{2} * 1920, 0.25F)}, start + time);
        }
    }
    static bool fails(const MovieWriter& writer)
    {
        for (int attempt = 0; attempt < 2000 && !writer.failure(); ++attempt)
            std::this_thread::sleep_for(5ms);
        return writer.failure().has_value();
    }
    /// The movie, or what went wrong; nothing where the writer does not come to an end within ten seconds.
    static std::optional<Result<std::filesystem::path>> finishSoon(MovieWriter& writer, nanoseconds time)
    {
        auto promise = std::make_shared<std::promise<Result<std::filesystem::path>>>();
        auto future = promise->get_future();
        writer.finish(start + time, [promise](auto result) { promise->set_value(std::move(result)); });
        if (future.wait_for(10s) != std::future_status::ready)
            return std::nullopt;
        return future.get();
    }
    [[nodiscard]] std::vector<std::string> warnings() const
    {
        std::vector<std::string> all;
        for (const auto& line : log.lines()) {
            if (line.type != QtInfoMsg)
                all.push_back(line.message);
        }
        return all;
    }
};

TEST_F(HangingEncoderTest, WhatWasEncodedBeforeIsAMovieWithItsSound)
{
    const auto movies = createFfmpegMovies(queue, means);
    ASSERT_TRUE(isPrepared(*movies));
    auto writer = beginOn(*movies);
    const ReleasedDriver release;
    Driver::shared().hangIn(DriverCall::encode, 55);
    appendUntil(*writer, 2400ms);
    ASSERT_TRUE(fails(*writer));
    EXPECT_EQ(writer->failure()->message, noAnswer);
    EXPECT_EQ(writer->failure()->code, ErrorCode::permanent);
    const auto finished = finishSoon(*writer, 2400ms);
    ASSERT_TRUE(finished) << "The movie's end hangs, too.";
    ASSERT_TRUE(*finished) << finished->error().message;
    const PlayedMovie played(**finished);
    // Also those of the last second, which were in no whole piece.
    EXPECT_EQ(played.pictures().size(), 55U);
    // The last picture stands as long as there was sound.
    EXPECT_NEAR(played.videoDuration().count(), 2.4, 0.001);
    EXPECT_NEAR(played.audioDuration().count(), 2.4, 0.03);
    EXPECT_TRUE(std::ranges::all_of(played.left().end() - 4800, played.left().end() - 2400,
                                    [](float sample) { return std::abs(sample - 0.25F) < 0.1F; }));
}

TEST_F(HangingEncoderTest, EndOfAMovieWaitsForItForABoundedTimeAlone)
{
    const auto movies = createFfmpegMovies(queue, means);
    ASSERT_TRUE(isPrepared(*movies));
    auto writer = beginOn(*movies);
    const ReleasedDriver release;
    // The movie's end shows the last picture once more.
    Driver::shared().hangIn(DriverCall::encode, 25);
    appendUntil(*writer, 1s);
    const auto finished = finishSoon(*writer, 2s);
    ASSERT_TRUE(finished) << "The movie's end hangs.";
    ASSERT_TRUE(*finished) << finished->error().message;
    EXPECT_EQ(PlayedMovie(**finished).pictures().size(), 25U);
    ASSERT_TRUE(writer->failure());
    EXPECT_EQ(writer->failure()->message, noAnswer);
    EXPECT_THAT(warnings(), ElementsAre(std::string("The end of a movie is missing: ") + noAnswer));
}

TEST_F(HangingEncoderTest, WriterThatGoesDoesNotWaitForIt)
{
    const auto movies = createFfmpegMovies(queue, means);
    ASSERT_TRUE(isPrepared(*movies));
    auto writer = beginOn(*movies);
    const ReleasedDriver release;
    Driver::shared().hangIn(DriverCall::encode, 25);
    appendUntil(*writer, 1200ms);
    ASSERT_TRUE(Driver::shared().waitUntilItHangs());
    auto gone = std::async(std::launch::async, [&] { writer.reset(); });
    EXPECT_EQ(gone.wait_for(10s), std::future_status::ready);
    Driver::shared().release();
}

TEST_F(HangingEncoderTest, DriverIsNotAskedAgain)
{
    const auto movies = createFfmpegMovies(queue, means);
    ASSERT_TRUE(isPrepared(*movies));
    auto writer = beginOn(*movies);
    const ReleasedDriver release;
    Driver::shared().hangIn(DriverCall::encode, 1);
    appendUntil(*writer, 400ms);
    ASSERT_TRUE(fails(*writer));
    ASSERT_TRUE(finishSoon(*writer, 1s));

    ASSERT_TRUE(isPrepared(*movies));
    auto next = beginOn(*movies);
    appendUntil(*next, 1s);
    EXPECT_FALSE(next->failure());
    const auto finished = finishSoon(*next, 990ms);
    ASSERT_TRUE(finished && *finished);
    EXPECT_EQ(PlayedMovie(**finished).pictures().size(), 25U);
}

TEST_F(HangingEncoderTest, OneThatHangsWhenItIsOpenedLeavesTheMovieToTheProcessor)
{
    auto movies = createFfmpegMovies(queue, means);
    const ReleasedDriver release;
    Driver::shared().hangIn(DriverCall::open);
    ASSERT_TRUE(isPrepared(*movies));
    auto writer = beginOn(*movies);
    appendUntil(*writer, 1s);
    const auto finished = finishSoon(*writer, 990ms);
    ASSERT_TRUE(finished && *finished);
    EXPECT_EQ(PlayedMovie(**finished).pictures().size(), 25U);
    EXPECT_THAT(warnings(), ElementsAre(StartsWith("The processor encodes instead of libx264: ")));
    auto gone = std::async(std::launch::async, [&] { movies.reset(); });
    EXPECT_EQ(gone.wait_for(10s), std::future_status::ready) << "The application's end hangs.";
    Driver::shared().release();
}

TEST_F(HangingEncoderTest, OneThatHangsWhenItIsClosedHoldsUpNoMovie)
{
    const auto movies = createFfmpegMovies(queue, means);
    ASSERT_TRUE(isPrepared(*movies));
    auto writer = beginOn(*movies);
    const ReleasedDriver release;
    appendUntil(*writer, 1s);
    Driver::shared().hangIn(DriverCall::close);
    const auto finished = finishSoon(*writer, 990ms);
    ASSERT_TRUE(finished) << "The movie's end hangs.";
    ASSERT_TRUE(*finished) << finished->error().message;
    EXPECT_EQ(PlayedMovie(**finished).pictures().size(), 25U);
}

TEST_F(HangingEncoderTest, UnusedOneThatHangsWhenItIsClosedDoesNotHoldUpTheApplicationsEnd)
{
    auto movies = createFfmpegMovies(queue, means);
    ASSERT_TRUE(isPrepared(*movies));
    const ReleasedDriver release;
    Driver::shared().hangIn(DriverCall::close);
    auto gone = std::async(std::launch::async, [&] { movies.reset(); });
    EXPECT_EQ(gone.wait_for(10s), std::future_status::ready) << "The application's end hangs.";
    Driver::shared().release();
}

/// A library of a driver cleans up when the process ends, and waits for the call that never returns.
TEST_F(HangingEncoderTest, ProcessEndsWithItsStatusThoughTheDriverNeverReturns)
{
    const auto recordAndExit = [&] {
        const auto movies = createFfmpegMovies(queue, means);
        if (!isPrepared(*movies))
            std::_Exit(1);
        if (std::atexit([] { std::this_thread::sleep_for(1h); }) != 0)
            std::_Exit(2);
        const auto writer = beginOn(*movies);
        Driver::shared().hangIn(DriverCall::encode, 25);
        appendUntil(*writer, 1200ms);
        const auto finished = finishSoon(*writer, 1200ms);
        if (!finished || !*finished)
            std::_Exit(3);
        ::alarm(10);
        std::exit(7);
    };
    EXPECT_EXIT(recordAndExit(), testing::ExitedWithCode(7), "");
}

} // namespace
} // namespace nimbrale::ffmpeg
