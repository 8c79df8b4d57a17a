// Movies as the application has them: begun, killed, and found again.

#include "platform/ffmpeg/ffmpeg_movies.h"

#include "tests/unit/platform/ffmpeg/begun_movie.h"
#include "tests/unit/platform/ffmpeg/movie_writer_fixture.h"

#include <csignal>
#include <sys/wait.h>

namespace nimbrale::ffmpeg {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;

class FfmpegMoviesTest : public MovieWriterTest {
protected:
    FakeMainQueue queue;

    /// What a recovery of the folder reports; fails the test when it never does.
    std::vector<RecoveredMovie> recovered()
    {
        const auto movies = createFfmpegMovies(queue, {});
        std::optional<std::vector<RecoveredMovie>> result;
        movies->recover(folder, [&](std::vector<RecoveredMovie> found) { result = std::move(found); });
        for (int attempt = 0; attempt < 1000 && !result; ++attempt) {
            std::this_thread::sleep_for(10ms);
            queue.runPosted();
        }
        EXPECT_TRUE(result);
        return result.value_or(std::vector<RecoveredMovie>());
    }
    /// Lets a process write, kills it as soon as the file holds `pictures`, and gives the recovered movie.
    std::unique_ptr<PlayedMovie> recoveredAfterKill(const std::function<void(MovieWriter& writer)>& write,
                                                    std::size_t pictures)
    {
        // A process with threads could not be forked.
        const pid_t child = fork();
        if (child == 0) {
            const auto writer = begin(settingsFor(320, 240));
            write(*writer);
            while (true)
                pause();
        }
        const bool isWritten = piecesWith(pictures) != nullptr;
        EXPECT_THAT(recovered(), IsEmpty()); // It still writes.
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(isWritten && WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
        EXPECT_THAT(recovered(), ElementsAre(RecoveredMovie{movie, std::nullopt}));
        EXPECT_THAT(names(), ElementsAre("Movie.mov"));
        return std::make_unique<PlayedMovie>(movie);
    }
};

TEST_F(FfmpegMoviesTest, BegunMovieIsWritten)
{
    const auto movies = createFfmpegMovies(queue, {});
    auto writer = beginMovie(*movies, queue, settingsFor(64, 48));
    ASSERT_TRUE(writer);
    (*writer)->startSession(start);
    Screen screen(64, 48);
    append(**writer, screen, 0s);
    ASSERT_TRUE(finish(**writer, 1s));
    EXPECT_EQ(PlayedMovie(movie).pictures().size(), 2U);
}

TEST_F(FfmpegMoviesTest, KilledWriterLosesLittleOfAMovingScreen)
{
    const auto played = recoveredAfterKill(
        [](MovieWriter& writer) {
            Screen screen(320, 240);
            for (std::size_t number = 0; number < 151; ++number) {
                screen.fillWithNoise(static_cast<unsigned>(number));
                append(writer, screen, nanoseconds(number * std::nano::den / 30));
            }
        },
        105);
    EXPECT_GE(played->videoDuration().count(), 3.5); // Of the 5 seconds that were written.
    EXPECT_NEAR(static_cast<double>(played->pictures().size()), played->videoDuration().count() * 30, 1);
}

TEST_F(FfmpegMoviesTest, KilledWriterLosesLittleOfAStillScreen)
{
    const auto played = recoveredAfterKill(
        [](MovieWriter& writer) {
            Screen screen(320, 240);
            append(writer, screen, 0s);
            for (nanoseconds time = 950ms; time <= 5s; time += 950ms)
                writer.repeatVideo(start + time);
        },
        5);
    EXPECT_NEAR(played->videoDuration().count(), 4.75, 0.001); // The last repetition.
}

TEST_F(FfmpegMoviesTest, RecoveryThatNobodyWaitsForIsNotReported)
{
    bool isReported = false;
    auto movies = createFfmpegMovies(queue, {});
    movies->recover(folder, [&](const auto&) { isReported = true; });
    movies.reset();
    EXPECT_EQ(queue.pendingPosts(), 1U); // It was done.
    queue.runPosted();
    EXPECT_FALSE(isReported);
}

} // namespace
} // namespace nimbrale::ffmpeg
