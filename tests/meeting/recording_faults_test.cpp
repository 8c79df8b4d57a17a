// Nothing that was recorded is lost, whatever happens to the program, the display, the disk and the folder.

#include "tests/meeting/recording_journey.h"

#include <chrono>
#include <csignal>
#include <random>

namespace nimbrale::test {
namespace {

class RecordingFaultsTest : public RecordingJourney {
protected:
    void SetUp() override { prepare(); }

    void startRecording(Milliseconds duration)
    {
        pressRecord();
        ASSERT_TRUE(isRecording()) << application->process().output();
        sleepFor(duration);
    }
    /// Lets a part of the screen move for that long.
    void moveFor(Milliseconds duration)
    {
        const auto end = std::chrono::steady_clock::now() + duration;
        for (int count = 0; std::chrono::steady_clock::now() < end; ++count) {
            scene->move("moving", {601 + count % 40, 301});
            sleepFor(Milliseconds{30});
        }
    }
    void kill()
    {
        application->process().signal(SIGKILL);
        ASSERT_TRUE(application->process().waitForEnd(Milliseconds{3000}));
        // The server and whoever lies behind take their time to remove it, and the virtual display stays for longer:
        // both would be taken for those of the next start, and clicks would come before there is anything to click.
        ASSERT_TRUE(waitUntil([&] { return !hasFrame(); }, Milliseconds{5000}));
    }
    /// After a kill. The recording that it cut off is saved while the frame is still on its way.
    [[nodiscard]] bool startsAgain()
    {
        std::string reason;
        application = Application::startAgain(*desktop, reason);
        return application && isFrameShown(Milliseconds{15'000}) && application->waitForVirtualDisplay(region.size());
    }
};

TEST_F(RecordingFaultsTest, AStillScreenSurvivesAKillAndIsSavedAtTheNextStart)
{
    start();
    startRecording(Milliseconds{6000});
    kill();
    EXPECT_TRUE(moviesIn(videos).empty());
    ASSERT_EQ(otherFilesIn(videos).size(), 1U);

    ASSERT_TRUE(startsAgain());
    ASSERT_TRUE(isSaved()) << application->process().output();
    const MovieFile saved = movie();
    EXPECT_EQ(saved.problems(), "");
    EXPECT_EQ(saved.boxes(), "ftyp mdat moov");
    ASSERT_TRUE(saved.video());
    EXPECT_GE(saved.video()->duration, 4.5);
    EXPECT_TRUE(showsAreaOf(saved.pictureAt(4), region));
}

TEST_F(RecordingFaultsTest, KilledAtAnyMomentNoMoreThanASecondAndAHalfIsLost)
{
    start();
    scene->add("moving", {.geometry = {601, 301, 80, 80}, .seed = 0, .color = Qt::black});
    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    for (int round = 0; round < 6; ++round) {
        const Milliseconds duration{std::uniform_int_distribution<int>(1700, 4500)(random)};
        SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(round) + ", killed after " +
                     std::to_string(duration.count()) + " ms");
        pressRecord();
        ASSERT_TRUE(isRecording()) << application->process().output() << keepImage(desktop->screenshot(), "desktop");
        const auto begin = std::chrono::steady_clock::now();
        if (round % 2 == 0)
            moveFor(duration);
        else
            sleepFor(duration);
        const double recorded = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        kill();
        ASSERT_TRUE(startsAgain()) << application->process().output();
        ASSERT_TRUE(isSaved()) << application->process().output();
        ASSERT_TRUE(dismissAlert()) << "the user is told of it";
        EXPECT_EQ(movie().problems(), "");
        ASSERT_TRUE(movie().video());
        EXPECT_GE(movie().video()->duration, recorded - 1.5);
        std::filesystem::remove(movie().path());
    }
}

TEST_F(RecordingFaultsTest, AFolderThatWasAwayAtTheStartHasWhatAKillLeftSavedWhileTheNextMovieIsWritten)
{
    start();
    startRecording(Milliseconds{4000});
    kill();
    const std::filesystem::path away = videos.parent_path() / "away";
    std::filesystem::rename(videos, away);
    ASSERT_TRUE(startsAgain());
    std::filesystem::rename(away, videos);
    ASSERT_EQ(otherFilesIn(videos).size(), 1U);

    pressRecord();
    ASSERT_TRUE(waitUntil([&] { return moviesIn(videos).size() == 1; }, Milliseconds{8000}))
        << application->process().output();
    ASSERT_TRUE(dismissAlert()) << "the user is told of it";
    ASSERT_EQ(otherFilesIn(videos).size(), 1U) << "the movie that is written: " << application->process().output();
    sleepFor(Milliseconds{2000});
    pressRecord();
    ASSERT_TRUE(isSaved(2)) << application->process().output();
    for (const auto& saved : moviesIn(videos)) {
        EXPECT_EQ(MovieFile(saved).problems(), "") << saved;
        ASSERT_TRUE(MovieFile(saved).video()) << saved;
        EXPECT_GE(MovieFile(saved).video()->duration, 1.5) << saved;
    }
}

TEST_F(RecordingFaultsTest, ADiskThatTakesItsTimeAndKnowsNoExclusiveRenamingCostsNothing)
{
    const auto library = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "nimbrale_slow_disk.so";
    ASSERT_TRUE(std::filesystem::exists(library));
    start({}, {{"LD_PRELOAD", library.string()}});
    scene->add("moving", {.geometry = {601, 301, 80, 80}, .seed = 0, .color = Qt::black});
    startRecording(Milliseconds{0});
    moveFor(Milliseconds{12'000});
    pressRecord();
    ASSERT_TRUE(isSaved(1, Milliseconds{15'000})) << application->process().output();
    const MovieFile saved = movie();
    EXPECT_EQ(saved.problems(), "");
    ASSERT_TRUE(saved.video());
    EXPECT_GE(saved.video()->duration, 11.5);
    const std::string output = application->process().output();
    EXPECT_NE(output.find("The slow disk is asked to keep something."), std::string::npos);
    EXPECT_NE(output.find("The slow disk is asked to rename something."), std::string::npos);
    EXPECT_EQ(output.find("missing in a movie"), std::string::npos);
    // While the disk was asked, too: no half second without a picture.
    double last = 0;
    for (const MovieFile::Picture& picture : saved.video()->pictures) {
        EXPECT_LT(picture.time - last, 0.5);
        last = picture.time;
    }
}

TEST_F(RecordingFaultsTest, AVirtualDisplayThatGoesLeavesAMovie)
{
    start();
    startRecording(Milliseconds{2000});
    desktop->deleteMonitor("Nimbrale");
    // It comes back at once, or the recording ends; either way the movie is whole.
    sleepFor(Milliseconds{2000});
    if (!otherFilesIn(videos).empty())
        pressRecord();
    ASSERT_TRUE(isSaved()) << application->process().output();
    EXPECT_EQ(movie().problems(), "");
    EXPECT_GE(movie().video()->duration, 1.5);
    EXPECT_TRUE(showsAreaOf(movie().pictureAt(1), region));
}

TEST_F(RecordingFaultsTest, AnXServerThatEndsLeavesAMovieOrWhatTheNextStartMakesOneOf)
{
    start();
    startRecording(Milliseconds{4000});
    scene.reset();
    desktop->server().terminate();
    EXPECT_EQ(application->process().waitForEnd(Milliseconds{8000}), 1);
    // The toolkit may notice first, and ends the program at once.
    ASSERT_EQ(moviesIn(videos).size() + otherFilesIn(videos).size(), 1U);

    const auto next = requireDesktop({.windowManager = PrivateDesktop::WindowManager::openbox});
    const auto again = requireApplication(*next, {.region = region}, {{"HOME", (desktop->folder() / "home").string()}});
    ASSERT_TRUE(isSaved()) << again->process().output();
    EXPECT_EQ(movie().problems(), "");
    EXPECT_GE(movie().video()->duration, 2.5);
}

TEST_F(RecordingFaultsTest, AProgramThatStandsStillForTenSecondsGoesOn)
{
    start();
    startRecording(Milliseconds{2000});
    application->process().signal(SIGSTOP);
    sleepFor(Milliseconds{10'000});
    application->process().signal(SIGCONT);
    sleepFor(Milliseconds{2000});
    pressRecord();
    ASSERT_TRUE(isSaved()) << application->process().output();
    EXPECT_EQ(movie().problems(), "");
    EXPECT_NEAR(movie().video()->duration, 14, 1);
    EXPECT_TRUE(showsAreaOf(movie().pictureAt(7), region));
    EXPECT_TRUE(showsAreaOf(movie().pictureAt(13), region));
}

TEST_F(RecordingFaultsTest, AFolderThatIsRemovedIsToldAndTheProgramGoesOn)
{
    start();
    startRecording(Milliseconds{2000});
    EXPECT_FALSE(isAlertShown());
    std::filesystem::remove_all(videos);
    pressRecord();
    EXPECT_TRUE(waitUntil([&] { return isAlertShown(); }, Milliseconds{8000})) << application->process().output();
    EXPECT_TRUE(application->process().isRunning());
}

} // namespace
} // namespace nimbrale::test
