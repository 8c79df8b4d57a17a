// Nothing that was recorded is lost, whatever happens to the program, the display, the disk and the folder.

#include "tests/meeting/recording_journey.h"

#include <chrono>
#include <csignal>

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
    [[nodiscard]] bool startsAgain()
    {
        std::string reason;
        application = Application::startAgain(*desktop, reason);
        return application && application->waitForVirtualDisplay(region.size()) && isFrameShown();
    }
};

TEST_F(RecordingFaultsTest, AStillScreenSurvivesAKillAndIsSavedAtTheNextStart)
{
    start();
    startRecording(Milliseconds{6000});
    application->process().signal(SIGKILL);
    ASSERT_TRUE(application->process().waitForEnd(Milliseconds{3000}));
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
    std::size_t count = 0;
    for (const int duration : {1700, 2100, 2600, 3300, 3900}) {
        pressRecord();
        ASSERT_TRUE(isRecording());
        const auto begin = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() - begin < Milliseconds{duration}) {
            scene->move("moving", {601 + static_cast<int>(++count) % 40, 301});
            sleepFor(Milliseconds{30});
        }
        const double recorded = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        application->process().signal(SIGKILL);
        ASSERT_TRUE(application->process().waitForEnd(Milliseconds{3000}));
        ASSERT_TRUE(startsAgain());
        ASSERT_TRUE(isSaved()) << application->process().output();
        ASSERT_TRUE(dismissAlert()) << "the user is told of it";
        EXPECT_EQ(movie().problems(), "") << duration;
        ASSERT_TRUE(movie().video()) << duration;
        EXPECT_GE(movie().video()->duration, recorded - 1.5) << duration;
        std::filesystem::remove(movie().path());
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
