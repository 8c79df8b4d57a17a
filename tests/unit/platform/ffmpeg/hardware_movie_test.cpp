// Movies by a graphics card, which a working, a lying, a hanging and a crashing program stand for: the processor takes
// over whenever anything is not as it should be.

#include "platform/ffmpeg/encoder_probe.h"
#include "tests/unit/platform/ffmpeg/stand_in_encoder_fixture.h"

#include <unistd.h>

namespace nimbrale::ffmpeg {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* byStandIn = "Movies of 320 x 240 are encoded by libx264.";

class HardwareMovieTest : public StandInEncoderTest {
protected:
    /// The real one.
    HardwareSearch::Means means{.candidates = {workingEncoder()},
                                .program = std::filesystem::read_symlink("/proc/self/exe").parent_path() /
                                           "nimbrale-encoder-probe"};

    void useProgram(const std::string& lines) { means.program = standInProgram(programs.path().toStdString(), lines); }
    [[nodiscard]] std::string confirmation() const
    {
        return ProbeQuestion{settings.video, means.candidates.front()}.confirmation();
    }
    /// How often the program was started, of those that `useProgram` made with `countRuns`.
    std::string countRuns = "echo run >> \"$(dirname \"$0\")/runs\"\n";
    [[nodiscard]] std::size_t runs() const
    {
        std::ifstream file(programs.path().toStdString() + "/runs");
        return static_cast<std::size_t>(
            std::ranges::count(std::string{std::istreambuf_iterator<char>(file), {}}, '\n'));
    }
    /// Makes a movie of ten pictures and gives it as it is played.
    PlayedMovie madeBy(Movies& movies)
    {
        auto writer = beginMovie(movies, queue, settings);
        if (!writer)
            throw std::runtime_error(writer.error().message);
        (*writer)->startSession(start);
        Screen screen(320, 240);
        for (int number = 0; number < 10; ++number) {
            screen.fill({37 + number, 21, 75, 91}, {255, 255, 255});
            append(**writer, screen, number * 40ms);
        }
        const auto finished = finish(**writer, 390ms);
        if (!finished)
            throw std::runtime_error(finished.error().message);
        PlayedMovie played(*finished);
        std::filesystem::remove(*finished);
        return played;
    }
    void expectWhole(const PlayedMovie& played)
    {
        EXPECT_EQ(played.pictures().size(), 10U);
        EXPECT_EQ(played.video().profile, FF_PROFILE_H264_HIGH);
        EXPECT_GT(played.pictures().back().lumaAt(37, 21), 200);
        EXPECT_LT(played.pictures().back().lumaAt(36, 21), 50);
    }
    /// The first words of each line of the log.
    [[nodiscard]] std::vector<std::string> messages() const
    {
        std::vector<std::string> all;
        for (const auto& line : log.lines())
            all.push_back(line.message);
        return all;
    }
    void expectProcessorBecause(const std::string& reason)
    {
        const auto movies = createFfmpegMovies(queue, means);
        ASSERT_TRUE(isPrepared(*movies));
        expectWhole(madeBy(*movies));
        EXPECT_THAT(messages(), ElementsAre("Movies of 320 x 240 are encoded by the processor. libx264: " + reason));
    }
};

TEST_F(HardwareMovieTest, EncoderThatWorksMakesTheMovie)
{
    const auto movies = createFfmpegMovies(queue, means);
    ASSERT_TRUE(isPrepared(*movies));
    expectWhole(madeBy(*movies));
    EXPECT_THAT(messages(), ElementsAre(byStandIn));
}

TEST_F(HardwareMovieTest, AnswerIsKeptForMoviesOfTheSameKind)
{
    useProgram(countRuns + "echo '" + confirmation() + "'");
    const auto movies = createFfmpegMovies(queue, means);
    for (int number = 0; number < 3; ++number) {
        ASSERT_TRUE(isPrepared(*movies));
        expectWhole(madeBy(*movies));
    }
    EXPECT_EQ(runs(), 1U);
    settings.video.averageBitRate += 1000;
    ASSERT_TRUE(isPrepared(*movies));
    EXPECT_EQ(runs(), 2U);
}

TEST_F(HardwareMovieTest, SecondCandidateIsTakenWhereTheFirstFails)
{
    means.candidates.insert(means.candidates.begin(), {"h264_vaapi", "/dev/null", "async_depth=1"});
    const auto movies = createFfmpegMovies(queue, means);
    ASSERT_TRUE(isPrepared(*movies));
    expectWhole(madeBy(*movies));
    EXPECT_THAT(messages(), ElementsAre(byStandIn));
}

TEST_F(HardwareMovieTest, ProcessorTakesOverForAProgramThatCrashes)
{
    useProgram("kill -SEGV $$");
    expectProcessorBecause("It crashes.");
}

TEST_F(HardwareMovieTest, ProcessorTakesOverForAProgramThatHangs)
{
    useProgram("exec sleep 30");
    means.patience = 200ms;
    expectProcessorBecause("It takes too long.");
}

TEST_F(HardwareMovieTest, ProcessorTakesOverForAProgramThatIsNotThere)
{
    means.program = "/nowhere/probe";
    expectProcessorBecause("It cannot be tried.");
}

TEST_F(HardwareMovieTest, ProcessorTakesOverForAnEncoderThatTheProgramRefuses)
{
    means.candidates.front().options = "tune=zerolatency:profile=baseline";
    expectProcessorBecause("It is not the High profile.");
}

TEST_F(HardwareMovieTest, SuccessWithoutConfirmationIsNone)
{
    useProgram("echo 'h264_vaapi works for 64 x 48'");
    expectProcessorBecause("It gives no clear answer.");
}

TEST_F(HardwareMovieTest, EncoderThatDoesNotOpenAfterAllGivesWayToTheProcessor)
{
    means.candidates.front().options = "preset=impossible";
    useProgram("echo '" + confirmation() + "'");
    const auto movies = createFfmpegMovies(queue, means);
    ASSERT_TRUE(isPrepared(*movies));
    expectWhole(madeBy(*movies));
    EXPECT_THAT(messages(), ElementsAre(byStandIn, StartsWith("The processor encodes instead of libx264: ")));
}

TEST_F(HardwareMovieTest, StartWaitsForABoundedTimeAlone)
{
    useProgram("exec sleep 30");
    const auto movies = createFfmpegMovies(queue, means);
    bool isDone = false;
    movies->prepare(settings.video, [&] { isDone = true; });
    queue.advance(1400ms);
    EXPECT_FALSE(isDone);
    queue.advance(200ms);
    EXPECT_TRUE(isDone);
    expectWhole(madeBy(*movies));
}

TEST_F(HardwareMovieTest, EndOfTheApplicationDoesNotWaitForASearch)
{
    useProgram(countRuns + "exec sleep 30");
    means.patience = 1min;
    auto movies = createFfmpegMovies(queue, means);
    movies->prepare(settings.video, [] {});
    for (int attempt = 0; attempt < 1000 && runs() == 0; ++attempt)
        std::this_thread::sleep_for(5ms);
    ASSERT_EQ(runs(), 1U);
    const auto begin = std::chrono::steady_clock::now();
    movies.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
    queue.advance(2s); // The completion of nobody.
}

TEST_F(HardwareMovieTest, CompletionOfAnOvertakenPreparationIsReleasedOnItsOwnThread)
{
    useProgram(countRuns + "exec sleep 30");
    auto movies = createFfmpegMovies(queue, means);
    std::optional<std::thread::id> releasedOn;
    bool isCalled = false;
    std::shared_ptr<int> owned(new int(0), [&](const int* number) {
        delete number;
        releasedOn = std::this_thread::get_id();
    });
    movies->prepare(settings.video, [&isCalled, owned = std::move(owned)] { isCalled = true; });
    for (int attempt = 0; attempt < 1000 && runs() == 0; ++attempt)
        std::this_thread::sleep_for(5ms);
    ASSERT_EQ(runs(), 1U); // The other thread is at it.
    movies->prepare(settings.video, [] {});
    movies.reset();
    EXPECT_EQ(releasedOn, std::this_thread::get_id());
    EXPECT_FALSE(isCalled);
}

TEST_F(HardwareMovieTest, EncoderThatFailsInAMovieLeavesItAndIsNotUsedAgain)
{
    // It keeps the first picture back, which the program should have found.
    means.candidates.front().options = "preset=ultrafast";
    useProgram(countRuns + "echo '" + confirmation() + "'");
    const auto movies = createFfmpegMovies(queue, means);
    ASSERT_TRUE(isPrepared(*movies));
    auto writer = beginMovie(*movies, queue, settings);
    ASSERT_TRUE(writer);
    (*writer)->startSession(start);
    Screen screen(320, 240);
    append(**writer, screen, 0ms);
    for (int attempt = 0; attempt < 1000 && !(*writer)->failure(); ++attempt)
        std::this_thread::sleep_for(5ms);
    ASSERT_TRUE((*writer)->failure());
    (*writer)->cancel();
    writer->reset();

    ASSERT_TRUE(isPrepared(*movies));
    expectWhole(madeBy(*movies));
    settings.video.averageBitRate += 1000; // Not for another kind of movie either.
    ASSERT_TRUE(isPrepared(*movies));
    expectWhole(madeBy(*movies));
    EXPECT_EQ(runs(), 1U);
}

TEST_F(HardwareMovieTest, MovieOfAnotherKindThanPreparedIsByTheProcessor)
{
    useProgram("echo '" + confirmation() + "'");
    means.candidates.front().options = "preset=ultrafast"; // Would fail.
    const auto movies = createFfmpegMovies(queue, means);
    ASSERT_TRUE(isPrepared(*movies));
    settings.video.averageBitRate += 1000;
    expectWhole(madeBy(*movies));
}

TEST_F(HardwareMovieTest, WithoutACandidateNothingIsWaitedFor)
{
    const auto movies = createFfmpegMovies(queue, {});
    bool isDone = false;
    movies->prepare(settings.video, [&] { isDone = true; });
    EXPECT_TRUE(isDone);
    expectWhole(madeBy(*movies));
    EXPECT_THAT(messages(), IsEmpty());
}

} // namespace
} // namespace nimbrale::ffmpeg
