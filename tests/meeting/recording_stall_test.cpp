// A disk that does not answer, as one over a network that is gone: the application goes on, says so, and loses nothing.

#include "tests/meeting/recording_journey.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

namespace nimbrale::test {
namespace {

constexpr const char* mainThreadAsks = "The main thread asks the disk";
constexpr const char* hangs = "The disk hangs";

class RecordingStallTest : public RecordingJourney {
protected:
    void SetUp() override
    {
        prepare();
        std::filesystem::create_directories(videos);
        switchFile = videos.string() + ".stall";
    }
    void TearDown() override
    {
        goOn();
        application.reset();
    }

    [[nodiscard]] Environment stallingDisk() const
    {
        const auto library = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "nimbrale_stalled_disk.so";
        return {{"LD_PRELOAD", library.string()}, {"NIMBRALE_STALLED_FOLDER", videos.string()}};
    }
    /// The user has chosen the folder, although it is the default one, too.
    [[nodiscard]] std::map<std::string, std::string> chosenFolder() const
    {
        return {{"recordFolderBookmark", "@ByteArray(nimbrale-folder-1 1 0 0\\n" + videos.string() + ")"}};
    }
    void stall() const { std::ofstream(switchFile) << "The disk does not answer."; }
    void goOn() const { std::filesystem::remove(switchFile); }
    [[nodiscard]] bool isHanging() const
    {
        return waitUntil([&] { return application->process().output().find(hangs) != std::string::npos; },
                         Milliseconds{8000});
    }
    /// Whether the frame follows the pointer.
    [[nodiscard]] bool isAlive(const QRect& from, const QRect& to) const
    {
        desktop->drag(Application::handleOf(from), Application::handleOf(to), 10);
        desktop->movePointer(farAway);
        return desktop->waitForPixel(to.x() - 1, to.center().y(), QColor(255, 214, 10));
    }
    [[nodiscard]] static std::string linesWith(const std::string& text, const std::string& output)
    {
        std::string found;
        std::istringstream lines(output);
        for (std::string line; std::getline(lines, line);) {
            if (line.find(text) != std::string::npos)
                found += line + "\n";
        }
        return found;
    }

    std::filesystem::path switchFile;
};

TEST_F(RecordingStallTest, TheMainThreadAsksTheDiskForNothing)
{
    start(chosenFolder(), stallingDisk());
    record(Milliseconds{2000});
    ASSERT_TRUE(isSaved()) << application->process().output();
    ASSERT_TRUE(waitUntil([&] { return !revealed().empty(); }, Milliseconds{8000}));
    desktop->click(Application::settingsButtonOf(region));
    ASSERT_TRUE(waitUntil([&] { return desktop->activeWindowTitle().find("Settings") != std::string::npos; },
                          Milliseconds{8000}));
    EXPECT_EQ(application->quit(), 0);
    EXPECT_EQ(linesWith(mainThreadAsks, application->process().output()), "");

    // The control: it would have been seen.
    stall();
    start(chosenFolder(), stallingDisk());
    EXPECT_TRUE(isHanging());
}

TEST_F(RecordingStallTest, AtTheStartOfARecordingItIsToldAndTheFrameGoesOn)
{
    start({}, stallingDisk());
    stall();
    pressRecord();
    ASSERT_TRUE(isHanging()) << application->process().output();
    const QRect elsewhere = region.translated(120, 60);
    EXPECT_TRUE(isAlive(region, elsewhere));
    EXPECT_FALSE(isAlertShown()) << "a disk may take some seconds to wake up";
    ASSERT_TRUE(waitUntil([&] { return isAlertShown(); }, Milliseconds{20'000})) << application->process().output();
    ASSERT_TRUE(dismissAlert());
    EXPECT_TRUE(isAlive(elsewhere, region));
    goOn();
    sleepFor(Milliseconds{1000});
    EXPECT_TRUE(otherFilesIn(videos).empty()) << "what was given up left something";
    record(Milliseconds{2000});
    EXPECT_TRUE(isSaved()) << application->process().output();
}

TEST_F(RecordingStallTest, AtTheStartOfARecordingItDoesNotKeepTheApplicationFromQuitting)
{
    start({}, stallingDisk());
    stall();
    pressRecord();
    ASSERT_TRUE(isHanging());
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(application->quit(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(6));
    goOn();
    EXPECT_TRUE(otherFilesIn(videos).empty());
}

TEST_F(RecordingStallTest, AtTheStartOfTheApplicationItHoldsUpNothing)
{
    stall();
    start(chosenFolder(), stallingDisk());
    EXPECT_TRUE(isHanging());
    EXPECT_TRUE(isAlive(region, region.translated(120, 60)));
    EXPECT_EQ(application->quit(), 0);
}

TEST_F(RecordingStallTest, AfterTheStopItIsToldAndTheMovieSavedWhenItAnswers)
{
    start({}, stallingDisk());
    pressRecord();
    ASSERT_TRUE(isRecording());
    sleepFor(Milliseconds{3000});
    stall();
    pressRecord();
    ASSERT_TRUE(waitUntil([&] { return isAlertShown(); }, Milliseconds{20'000})) << application->process().output();
    EXPECT_TRUE(moviesIn(videos).empty());
    ASSERT_TRUE(dismissAlert());
    goOn();
    ASSERT_TRUE(isSaved()) << application->process().output();
    EXPECT_EQ(movie().problems(), "");
    EXPECT_GE(movie().video()->duration, 2.5);
    EXPECT_FALSE(isAlertShown()) << "it is told once";
}

TEST_F(RecordingStallTest, WhoQuitsDoesNotWaitForEverAndTheNextStartSavesTheMovie)
{
    start({}, stallingDisk());
    pressRecord();
    ASSERT_TRUE(isRecording());
    sleepFor(Milliseconds{4000});
    stall();
    const auto begin = std::chrono::steady_clock::now();
    application->process().signal(SIGTERM);
    EXPECT_EQ(application->process().waitForEnd(Milliseconds{25'000}), 0) << application->process().output();
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(9)) << "the disk may wake up";
    EXPECT_TRUE(moviesIn(videos).empty());
    goOn();

    start();
    ASSERT_TRUE(isSaved()) << application->process().output();
    ASSERT_TRUE(dismissAlert()) << "the user is told of it";
    EXPECT_EQ(movie().problems(), "");
    EXPECT_GE(movie().video()->duration, 2.5);
}

} // namespace
} // namespace nimbrale::test
