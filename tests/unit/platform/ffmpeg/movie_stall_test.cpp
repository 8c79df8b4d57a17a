// A disk that does not answer for as long as it likes: who waits for it is told and never held up for good.

// First: its functions have the names of types that come with other headers.
#include "tests/unit/platform/ffmpeg/stalled_disk.h"

#include "platform/ffmpeg/ffmpeg_movies.h"
#include "tests/unit/platform/ffmpeg/begun_movie.h"
#include "tests/unit/platform/ffmpeg/movie_writer_fixture.h"

#include <gtest/gtest.h>

namespace nimbrale::ffmpeg {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Clock = std::chrono::steady_clock;

/// The disk hangs in calls of that name.
class MovieStallTest : public MovieWriterTest, public testing::WithParamInterface<const char*> {
protected:
    static constexpr auto patience = 500ms;

    template <typename Condition>
    static bool waitUntil(Condition condition, std::chrono::seconds longest = 20s)
    {
        const auto deadline = Clock::now() + longest;
        while (!condition() && Clock::now() < deadline)
            std::this_thread::sleep_for(1ms);
        return condition();
    }
    [[nodiscard]] std::unique_ptr<MovieWriter> beginImpatient() const
    {
        auto created = FfmpegMovieWriter::create(settingsFor(64, 48), {.withEncoder = 1h, .withDisk = patience});
        if (!created)
            throw std::runtime_error(created.error().message);
        (*created)->startSession(start);
        return *std::move(created);
    }
    void appendOne(MovieWriter& writer)
    {
        screen.fillWithNoise(static_cast<unsigned>(count));
        append(writer, screen, nanoseconds(count * std::nano::den / 30));
        ++count;
    }

    Screen screen{64, 48};
    std::size_t count = 0;
};

TEST_F(MovieStallTest, DiskThatDoesNotAnswerIsToldAndWhatItTakesLaterIsAMovie)
{
    StalledDisk disk("pwrite");
    const auto writer = beginImpatient();
    disk.stall();
    // From the first piece on: the movie has no picture yet.
    EXPECT_TRUE(waitUntil([&] {
        if (writer->isReadyForVideo() && count < 1000)
            appendOne(*writer);
        return writer->isStalled();
    }));
    EXPECT_TRUE(disk.isHoldingUp());
    EXPECT_FALSE(writer->failure()) << "nothing is lost yet";
    disk.goOn();
    const auto finished = finish(*writer, nanoseconds(count * std::nano::den / 30));
    ASSERT_TRUE(finished);
    EXPECT_FALSE(writer->isStalled());
    EXPECT_EQ(PlayedMovie(*finished).pictures().size(), count);
}

TEST_F(MovieStallTest, DiskThatAnswersHasNotStalled)
{
    const auto writer = beginImpatient();
    for (int number = 0; number < 60; ++number) {
        appendOne(*writer);
        EXPECT_FALSE(writer->isStalled());
    }
    std::this_thread::sleep_for(2 * patience);
    EXPECT_FALSE(writer->isStalled()) << "there is nothing to be written";
}

TEST_P(MovieStallTest, OneThatHangsWhileTheMovieIsFinishedIsToldAndTheMovieSavedWhenItAnswers)
{
    StalledDisk disk(GetParam());
    const auto writer = beginImpatient();
    for (int number = 0; number < 60; ++number)
        appendOne(*writer);
    disk.stall();
    std::promise<Result<std::filesystem::path>> promise;
    auto finished = promise.get_future();
    writer->finish(start + 2s, [&](auto result) { promise.set_value(std::move(result)); });
    EXPECT_TRUE(waitUntil([&] { return writer->isStalled(); }));
    EXPECT_EQ(finished.wait_for(0s), std::future_status::timeout);
    disk.goOn();
    ASSERT_EQ(finished.wait_for(20s), std::future_status::ready);
    ASSERT_TRUE(finished.get());
    EXPECT_EQ(PlayedMovie(movie).pictures().size(), 60U);
}

TEST_P(MovieStallTest, OneThatHangsWhileTheMovieIsFinishedHoldsUpNobodyWhoLeaves)
{
    StalledDisk disk(GetParam());
    auto writer = beginImpatient();
    for (int number = 0; number < 60; ++number)
        appendOne(*writer);
    disk.stall();
    std::atomic<bool> isTold = false;
    writer->finish(start + 2s, [&](const auto&) { isTold = true; });
    const auto begin = Clock::now();
    writer.reset();
    EXPECT_LT(Clock::now() - begin, 5s);
    EXPECT_TRUE(disk.isHoldingUp());
    disk.goOn();
    // What was left behind goes on by itself.
    ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(movie); }));
    EXPECT_EQ(PlayedMovie(movie).pictures().size(), 60U);
    EXPECT_FALSE(isTold) << "whoever would have been told may be gone";
}

INSTANTIATE_TEST_SUITE_P(Calls, MovieStallTest, testing::Values("fsync", "pwrite", "renameat2"),
                         [](const auto& call) { return std::string(call.param); });

/// A movie is begun through the application's own interface.
class MovieBeginningTest : public MovieStallTest {
protected:
    StalledDisk disk{"pwrite"};
    FakeMainQueue queue;
    std::unique_ptr<Movies> movies = createFfmpegMovies(queue, {});
    std::optional<Result<std::unique_ptr<MovieWriter>>> begun;

    [[nodiscard]] Subscription create()
    {
        return movies->create(settingsFor(64, 48), [this](auto writer) { begun.emplace(std::move(writer)); });
    }
};

TEST_F(MovieBeginningTest, DoesNotHoldUpWhoAsksForIt)
{
    disk.stall();
    const Subscription beginning = create();
    ASSERT_TRUE(waitUntil([&] { return disk.isHoldingUp(); }));
    queue.runPosted();
    EXPECT_FALSE(begun);
    disk.goOn();
    ASSERT_TRUE(waitUntil([&] {
        queue.runPosted();
        return begun.has_value();
    }));
    ASSERT_TRUE(*begun);
    (**begun)->cancel();
}

TEST_F(MovieBeginningTest, OneThatIsGivenUpLeavesNothingWhenTheDiskHasAnswered)
{
    disk.stall();
    Subscription beginning = create();
    ASSERT_TRUE(waitUntil([&] { return disk.isHoldingUp(); }));
    EXPECT_THAT(names(), ElementsAre("Movie.mov.unfinished"));
    beginning.reset();
    disk.goOn();
    EXPECT_TRUE(waitUntil([&] { return names().empty(); }));
    queue.runPosted();
    EXPECT_FALSE(begun);
}

TEST_F(MovieBeginningTest, OneThatWasAnsweredAndIsGivenUpLeavesNothing)
{
    Subscription beginning = create();
    ASSERT_TRUE(waitUntil([&] { return queue.pendingPosts() > 0; }));
    beginning.reset();
    queue.runPosted();
    EXPECT_FALSE(begun);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(MovieBeginningTest, TheEndOfTheApplicationWaitsTwoSecondsForIt)
{
    disk.stall();
    Subscription beginning = create();
    ASSERT_TRUE(waitUntil([&] { return disk.isHoldingUp(); }));
    beginning.reset();
    const auto begin = Clock::now();
    movies.reset();
    EXPECT_GE(Clock::now() - begin, 2s);
    EXPECT_LT(Clock::now() - begin, 5s);
    disk.goOn();
    EXPECT_TRUE(waitUntil([&] { return names().empty(); }));
}

TEST_F(MovieBeginningTest, AtTheEndOfTheApplicationNothingIsLeftWhereTheDiskAnswers)
{
    for (int round = 0; round < 50; ++round) {
        Subscription beginning = create();
        beginning.reset();
        movies.reset();
        // The toolkit's queue lets go of what waits in it at the end, too.
        queue.runPosted();
        EXPECT_THAT(names(), IsEmpty());
        movies = createFfmpegMovies(queue, {});
    }
}

/// Whatever a library would clean up at the process's end may be in use by the thread that waits for the disk.
TEST_F(MovieBeginningTest, TheProcessEndsWithItsStatusThoughTheDiskNeverAnswers)
{
    const auto beginAndExit = [&] {
        movies = createFfmpegMovies(queue, {});
        disk.stall();
        Subscription beginning = create();
        if (!waitUntil([&] { return disk.isHoldingUp(); }))
            std::_Exit(1);
        if (std::atexit([] { std::this_thread::sleep_for(1h); }) != 0)
            std::_Exit(2);
        beginning.reset();
        movies.reset();
        ::alarm(10);
        std::exit(7);
    };
    movies.reset();
    EXPECT_EXIT(beginAndExit(), testing::ExitedWithCode(7), "");
}

} // namespace
} // namespace nimbrale::ffmpeg
