// Movies that go wrong: nothing that was whole is lost, and nothing else is left.

// First: its functions have the names of types that come with other headers.
#include "tests/unit/platform/ffmpeg/file_calls.h"

#include "tests/support/small_disk.h"
#include "tests/unit/platform/ffmpeg/movie_writer_fixture.h"

#include <csignal>
#include <fstream>
#include <sys/resource.h>

namespace nimbrale::ffmpeg {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class MovieFailureTest : public MovieWriterTest {
protected:
    /// Noise at 30 pictures a second until `end` or until the writer fails; where it got to.
    static nanoseconds appendNoise(MovieWriter& writer, Screen& screen, nanoseconds from, nanoseconds end)
    {
        unsigned seed = 0;
        nanoseconds time = from;
        for (; time < end && !writer.failure(); time += 33333333ns) {
            screen.fillWithNoise(++seed);
            append(writer, screen, time);
        }
        return time;
    }
    /// Writes until there is no room any more, and finishes. Returns the number of the check that failed, or 0.
    int writeBeyondTheRoom(const std::string& message)
    {
        Screen screen(320, 240);
        MovieSettings settings = settingsFor(320, 240);
        settings.video.averageBitRate *= 8;
        const auto writer = begin(settings);
        const nanoseconds reached = appendNoise(*writer, screen, 0s, 60s);
        if (!writer->failure())
            return 1;
        if (writer->failure()->message != message)
            return 2;
        if (writer->isReadyForVideo())
            return 3;
        append(*writer, screen, reached + 1s); // Is no use, and does no harm.
        const auto finished = finish(*writer, reached + 2s);
        if (!finished)
            return 4;
        const PlayedMovie decoded(*finished);
        // The last piece is lost, and as much as its index needs.
        if (decoded.pictures().size() < 60 || decoded.pictures().back().time < reached - 4s)
            return 5;
        return writer->failure() ? 0 : 6;
    }
};

TEST_F(MovieFailureTest, FolderThatIsNotThereIsToldOf)
{
    MovieSettings settings = settingsFor(64, 48);
    settings.file = folder / "missing" / "Movie.mov";
    const auto writer = FfmpegMovieWriter::create(settings, {});
    ASSERT_FALSE(writer);
    EXPECT_EQ(writer.error().message, "The folder isn't there. Choose another folder in Settings.");
}

TEST_F(MovieFailureTest, SizeThatCannotBeEncodedLeavesNoFile)
{
    const auto writer = FfmpegMovieWriter::create(settingsFor(63, 48), {});
    ASSERT_FALSE(writer);
    EXPECT_EQ(writer.error().message, "A movie's width and height must be even.");
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(MovieFailureTest, ExistingMovieIsNeverOverwritten)
{
    std::ofstream(movie) << "somebody's";
    Screen screen(64, 48);
    const auto writer = begin(settingsFor(64, 48));
    append(*writer, screen, 0s);
    const auto finished = finish(*writer, 1s);
    ASSERT_TRUE(finished);
    EXPECT_EQ(*finished, folder / "Movie 2.mov");
    EXPECT_EQ(PlayedMovie(*finished).pictures().size(), 2U);
    EXPECT_EQ(std::filesystem::file_size(movie), 10U);
}

TEST_F(MovieFailureTest, FinishedMovieIsAllThatIsLeft)
{
    Screen screen(64, 48);
    const auto writer = begin(settingsFor(64, 48));
    append(*writer, screen, 0s);
    EXPECT_THAT(names(), ElementsAre("Movie.mov.unfinished"));
    ASSERT_TRUE(finish(*writer, 1s));
    EXPECT_THAT(names(), ElementsAre("Movie.mov"));
}

// Who looks for new movies, as a file manager or a synchronized folder does, must get a whole one.
TEST_F(MovieFailureTest, MovieIsWholeFromTheMomentWhenItHasItsName)
{
    const auto contentOf = [](const std::filesystem::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), {});
    };
    std::string contentBefore;
    FileCalls calls;
    calls.before = [&](const std::string& call) {
        if (call == "renameat2" && !std::filesystem::exists(movie))
            contentBefore = contentOf(movie.string() + std::string(MoviePlace::suffix));
    };
    Screen screen(64, 48);
    const auto writer = begin(settingsFor(64, 48));
    for (nanoseconds time = 0s; time < 4s; time += 500ms)
        append(*writer, screen, time);
    const auto finished = finish(*writer, 4s);
    ASSERT_TRUE(finished);
    EXPECT_EQ(*finished, movie);
    EXPECT_FALSE(contentBefore.empty());
    EXPECT_TRUE(contentOf(movie) == contentBefore) << "it was written to after it got its name";
    EXPECT_GE(PlayedMovie(movie).pictures().size(), 8U);
}

TEST_F(MovieFailureTest, CancelledMovieIsRemoved)
{
    Screen screen(320, 240);
    auto writer = begin(settingsFor(320, 240));
    appendNoise(*writer, screen, 0s, 2s);
    EXPECT_THAT(names(), ElementsAre("Movie.mov.unfinished"));
    writer->cancel();
    writer.reset();
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(MovieFailureTest, MovieWithoutAPictureIsNone)
{
    MovieSettings settings = settingsFor(64, 48);
    settings.audio = MovieAudio{};
    const auto writer = begin(settings);
    writer->appendAudio({.samples = std::vector<float>(96000)}, start);
    const auto finished = finish(*writer, 1s);
    ASSERT_FALSE(finished);
    EXPECT_EQ(finished.error().message, "The movie couldn't be saved.");
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(MovieFailureTest, WriterThatGoesUnfinishedLeavesItsPieces)
{
    Screen screen(64, 48);
    auto writer = begin(settingsFor(64, 48));
    for (nanoseconds time = 0s; time < 4s; time += 1s)
        append(*writer, screen, time);
    ASSERT_TRUE(piecesWith(3));
    writer.reset();
    EXPECT_THAT(names(), ElementsAre("Movie.mov.unfinished"));
    EXPECT_TRUE(piecesWith(3));
}

TEST_F(MovieFailureTest, FinishedMovieIsWholeThoughItsWriterGoesAtOnce)
{
    Screen screen(320, 240);
    auto writer = begin(settingsFor(320, 240));
    appendNoise(*writer, screen, 0s, 1s);
    bool isFinished = false;
    writer->finish(start + 1s, [&](const auto& result) { isFinished = result.has_value(); });
    writer.reset();
    EXPECT_TRUE(isFinished);
    EXPECT_EQ(PlayedMovie(movie).pictures().size(), 31U);
}

TEST_F(MovieFailureTest, LimitOfAFilesSizeLeavesWhatIsWhole)
{
    const int result = runInChild([&] {
        const rlimit limit{2000000, RLIM_INFINITY};
        if (std::signal(SIGXFSZ, SIG_IGN) == SIG_ERR || setrlimit(RLIMIT_FSIZE, &limit) != 0)
            return couldNotPrepare;
        return writeBeyondTheRoom("The recording couldn't be written: File too large.");
    });
    ASSERT_NE(result, couldNotPrepare);
    EXPECT_EQ(result, 0);
}

TEST_F(MovieFailureTest, FullDiskLeavesWhatIsWhole)
{
    const int result = runOnSmallDisk(temporary.path(), "size=2m", [&](const auto&) {
        return writeBeyondTheRoom("The recording ended because the disk is full.");
    });
    if (result == couldNotPrepare)
        GTEST_SKIP() << noSmallDisk;
    EXPECT_EQ(result, 0);
}

TEST_F(MovieFailureTest, DiskThatFailsLaterEndsTheMovieAndLeavesItsPieces)
{
    FileCalls calls;
    calls.failures["fsync"] = EIO;
    Screen screen(64, 48);
    const auto writer = begin(settingsFor(64, 48));
    nanoseconds time = 0s;
    for (; time < 60s && !writer->failure(); time += 1s)
        append(*writer, screen, time);
    waitForFailure(*writer);
    ASSERT_TRUE(writer->failure());
    EXPECT_EQ(writer->failure()->message, "The recording couldn't be written: Input/output error.");
    const auto finished = finish(*writer, time);
    ASSERT_FALSE(finished);
    EXPECT_THAT(finished.error().message,
                AllOf(StartsWith("The movie couldn't be saved."), HasSubstr(movie.string() + ".unfinished")));
    EXPECT_THAT(names(), ElementsAre("Movie.mov.unfinished"));
}

TEST_F(MovieFailureTest, FailureIsLoggedByWhoAsksForIt)
{
    FileCalls calls;
    Screen screen(64, 48);
    const auto writer = begin(settingsFor(64, 48));
    calls.failures["pwrite"] = EIO;
    for (nanoseconds time = 0s; time < 60s && !writer->failure(); time += 1s)
        append(*writer, screen, time);
    waitForFailure(*writer);
    ASSERT_TRUE(writer->failure());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MovieFailureTest, FailureThatNobodyAsksForAnyMoreIsLogged)
{
    FileCalls calls;
    // The last piece fails, and not what makes an ordinary movie of them after it.
    std::atomic<bool> failsNext = false;
    calls.before = [&](const std::string& call) {
        if (call == "pwrite")
            calls.failures["pwrite"] = failsNext.exchange(false) ? EIO : 0;
    };
    Screen screen(64, 48);
    const auto writer = begin(settingsFor(64, 48));
    for (nanoseconds time = 0s; time < 3s; time += 500ms)
        append(*writer, screen, time);
    ASSERT_TRUE(piecesWith(4));
    failsNext = true;
    ASSERT_TRUE(finish(*writer, 3s));
    std::vector<std::string> messages;
    for (const auto& line : log.lines())
        messages.push_back(line.message);
    EXPECT_THAT(messages, ElementsAre("The end of a movie is missing: The recording couldn't be written: "
                                      "Input/output error."));
}

} // namespace
} // namespace nimbrale::ffmpeg
