// The shared screen recorded by the real application, and its movies as other programs see them.

#include "tests/meeting/recording_journey.h"
#include "tests/support/session_manager.h"

#include <chrono>
#include <cmath>
#include <thread>

namespace nimbrale::test {
namespace {

class RecordingTest : public RecordingJourney {
protected:
    void SetUp() override { prepare(); }
};

TEST_F(RecordingTest, TheMovieShowsTheFramedAreaAndNothingOfOurs)
{
    start();
    record(Milliseconds{3000});
    ASSERT_TRUE(isSaved()) << application->process().output();
    const MovieFile saved = movie();
    EXPECT_EQ(saved.problems(), "");
    EXPECT_EQ(saved.boxes(), "ftyp mdat moov");
    ASSERT_TRUE(saved.video());
    EXPECT_EQ(saved.video()->codec, "h264");
    EXPECT_EQ(saved.video()->profile, "High");
    EXPECT_EQ(saved.video()->size, region.size());
    EXPECT_EQ(saved.video()->colors, "bt709 bt709 bt709 tv");
    EXPECT_EQ(saved.video()->start, 0);
    EXPECT_NEAR(saved.video()->duration, 3.2, 0.5);
    EXPECT_FALSE(saved.audio());
    // At first the pointer is on the button still.
    for (const double time : {0.5, 1.5, 2.5})
        EXPECT_TRUE(showsAreaOf(saved.pictureAt(time), region)) << "at " << time;
    EXPECT_NE(revealed().find("Videos"), std::string::npos) << revealed();
}

TEST_F(RecordingTest, APlayerShowsTheMovieToItsEnd)
{
    requireProgram("ffplay");
    start();
    record(Milliseconds{4000});
    ASSERT_TRUE(isSaved()) << application->process().output();
    const auto player = desktop->spawn("ffplay", {"-loglevel", "error", "-autoexit", "-window_title", "Player", "-left",
                                                  "880", "-top", "480", movie().path().string()});
    ASSERT_TRUE(player);
    const auto begin = std::chrono::steady_clock::now();
    testing::AssertionResult shown = testing::AssertionFailure() << "no window of the player";
    EXPECT_TRUE(waitUntil(
        [&] {
            const std::optional<QRect> window = desktop->windowTitled("Player");
            if (window)
                shown = showsAreaOf(desktop->screenshot(*window), region);
            return bool(shown);
        },
        Milliseconds{8000}))
        << shown.message() << player->output();
    EXPECT_EQ(player->waitForEnd(Milliseconds{15'000}), 0);
    EXPECT_EQ(player->output().find_first_not_of('\n'), std::string::npos) << player->output();
    EXPECT_GT(std::chrono::steady_clock::now() - begin, Milliseconds{3500}) << "it was not played to its end";
}

TEST_F(RecordingTest, AStillPictureHasAKeyFrameEveryTwoSecondsAndItsWholeLength)
{
    start();
    record(Milliseconds{7000});
    ASSERT_TRUE(isSaved()) << application->process().output();
    const MovieFile saved = movie();
    ASSERT_TRUE(saved.video());
    EXPECT_NEAR(saved.video()->duration, 7.2, 0.5);
    double lastKey = 0;
    int keys = 0;
    for (const MovieFile::Picture& picture : saved.video()->pictures) {
        if (!picture.isKey)
            continue;
        // A still picture is written every half second.
        EXPECT_LE(picture.time - lastKey, 2.6);
        lastKey = picture.time;
        ++keys;
    }
    EXPECT_GE(keys, 3);
    EXPECT_TRUE(showsAreaOf(saved.pictureAt(6.5), region));
}

// What moves sixty times a second is recorded thirty times a second, as the settings say.
TEST_F(RecordingTest, PicturesComeAtTheRateOfTheSettings)
{
    start();
    const auto animation = desktop->spawn("nimbrale_animation", {"blink", "601", "301", "80", "80", "60", "0"});
    ASSERT_TRUE(animation);
    record(Milliseconds{4000});
    ASSERT_TRUE(isSaved()) << application->process().output();
    const MovieFile saved = movie();
    ASSERT_TRUE(saved.video());
    const std::vector<MovieFile::Picture>& pictures = saved.video()->pictures;
    ASSERT_GT(pictures.size(), 60U);
    // A busy computer may miss some, but none comes for which there is no time.
    const double rate = static_cast<double>(pictures.size() - 1) / (pictures.back().time - pictures.front().time);
    EXPECT_LT(rate, 31);
    EXPECT_GT(rate, 20);
}

TEST_F(RecordingTest, WhatMovesIsInTheMovieAtItsTime)
{
    start();
    scene->add("flash", {.geometry = {601, 301, 80, 80}, .seed = 0, .color = Qt::black});
    pressRecord();
    ASSERT_TRUE(isRecording());
    sleepFor(Milliseconds{1000});
    // On and off, half a second each.
    const auto begin = std::chrono::steady_clock::now();
    for (int round = 0; round < 6; ++round) {
        std::this_thread::sleep_until(begin + round * Milliseconds{500});
        scene->fill("flash", {0, 0, 80, 80}, round % 2 == 0 ? Qt::white : Qt::black);
        desktop->synchronize();
    }
    sleepFor(Milliseconds{500});
    pressRecord();
    ASSERT_TRUE(isSaved());
    const MovieFile saved = movie();
    const QPoint middle = QPoint(640, 340) - region.topLeft();
    std::vector<double> changes;
    int last = 0;
    for (const MovieFile::Picture& picture : saved.video()->pictures) {
        const int brightness = qGray(saved.pictureAt(picture.time).pixel(middle));
        if (std::abs(brightness - last) > 128) {
            changes.push_back(picture.time);
            last = brightness;
        }
    }
    ASSERT_EQ(changes.size(), 6U);
    for (std::size_t index = 1; index < changes.size(); ++index)
        EXPECT_NEAR(changes[index] - changes[index - 1], 0.5, 0.12) << index;
}

TEST_F(RecordingTest, AFrameThatIsMovedAndResizedStaysWholeInTheMovie)
{
    start();
    pressRecord();
    ASSERT_TRUE(isRecording());
    sleepFor(Milliseconds{1000});
    const QRect moved = region.translated(60, 40);
    desktop->drag(Application::handleOf(region), Application::handleOf(moved));
    desktop->movePointer(farAway);
    sleepFor(Milliseconds{1500});
    const QRect resized(moved.topLeft(), QSize(320, 360));
    desktop->drag(Application::resizeButtonOf(moved), Application::resizeButtonOf(resized));
    desktop->movePointer(farAway);
    ASSERT_TRUE(application->waitForVirtualDisplay(resized.size()));
    sleepFor(Milliseconds{1500});
    pressRecord(resized);
    ASSERT_TRUE(isSaved()) << application->process().output();

    const MovieFile saved = movie();
    EXPECT_EQ(saved.problems(), "");
    ASSERT_TRUE(saved.video());
    EXPECT_EQ(saved.video()->size, region.size());
    EXPECT_TRUE(showsAreaOf(saved.pictureAt(0.5), region));
    EXPECT_TRUE(showsAreaOf(saved.pictureAt(2.5), moved));
    // Half as wide: whole, in the middle, with black beside it.
    const QImage last = saved.pictureAt(saved.video()->duration - 0.3);
    const QRect inside = resized.adjusted(8, 0, -8, 0);
    EXPECT_TRUE(showsAreaOf(last.copy(168, 0, inside.width(), inside.height()), inside));
    EXPECT_LT(qGray(last.pixel(80, 180)), 8);
    EXPECT_LT(qGray(last.pixel(560, 180)), 8);
}

TEST_F(RecordingTest, TheTimeIsOnTheFrameAndNotInTheMovie)
{
    start();
    const QRect label(region.x() - 2, region.y() - 20, 90, 40);
    const QImage before = desktop->screenshot(label);
    record(Milliseconds{2000});
    ASSERT_TRUE(isSaved());
    ASSERT_TRUE(waitUntil([&] { return desktop->screenshot(label) == before; }, Milliseconds{3000}))
        << "the label stays: " << keepImage(desktop->screenshot(), "desktop");
    pressRecord();
    EXPECT_TRUE(waitUntil([&] { return desktop->screenshot(label) != before; }, Milliseconds{5000}));
    sleepFor(Milliseconds{1000});
    pressRecord();
    ASSERT_TRUE(isSaved(2));
    EXPECT_TRUE(showsAreaOf(MovieFile(moviesIn(videos).back()).pictureAt(0.8), region));
}

TEST_F(RecordingTest, TheCommandLineTogglesToo)
{
    start();
    const auto toggle = [&] {
        const auto process = desktop->spawn((buildFolder() / "nimbrale").string(), {"--toggle-recording"});
        return process->waitForEnd(Milliseconds{8000});
    };
    EXPECT_EQ(toggle(), 0);
    ASSERT_TRUE(isRecording());
    sleepFor(Milliseconds{1000});
    EXPECT_EQ(toggle(), 0);
    ASSERT_TRUE(isSaved());
    EXPECT_EQ(movie().problems(), "");
}

TEST_F(RecordingTest, TwentyRecordingsInARow)
{
    start();
    for (std::size_t count = 1; count <= 20; ++count) {
        pressRecord();
        ASSERT_TRUE(isRecording()) << count << application->process().output();
        // The file is there a moment before its first picture.
        sleepFor(Milliseconds{400});
        pressRecord();
        ASSERT_TRUE(isSaved(count)) << count << application->process().output();
    }
    for (const std::filesystem::path& path : moviesIn(videos)) {
        const MovieFile saved(path);
        EXPECT_EQ(saved.problems(), "") << path;
        ASSERT_TRUE(saved.video()) << path;
        EXPECT_GT(saved.video()->duration, 0.1) << path;
    }
    EXPECT_EQ(application->quit(), 0);
}

TEST_F(RecordingTest, QuittingByTheFramesButtonSavesFirst)
{
    start();
    pressRecord();
    ASSERT_TRUE(isRecording());
    sleepFor(Milliseconds{1500});
    desktop->click(Application::closeButtonOf(region));
    EXPECT_EQ(application->process().waitForEnd(Milliseconds{8000}), 0);
    ASSERT_TRUE(isSaved());
    EXPECT_EQ(movie().problems(), "");
    EXPECT_GT(movie().video()->duration, 1.0);
}

TEST_F(RecordingTest, ASignalToQuitSavesFirst)
{
    start();
    pressRecord();
    ASSERT_TRUE(isRecording());
    sleepFor(Milliseconds{1500});
    EXPECT_EQ(application->quit(), 0);
    ASSERT_TRUE(isSaved());
    EXPECT_EQ(movie().problems(), "");
}

TEST_F(RecordingTest, TheEndOfTheSessionSavesFirst)
{
    std::string reason;
    const auto session = SessionManager::start(*desktop, reason);
    ASSERT_TRUE(session) << reason;
    start({}, session->environment());
    ASSERT_EQ(session->next(), "registered");
    pressRecord();
    ASSERT_TRUE(isRecording());
    sleepFor(Milliseconds{1500});
    EXPECT_TRUE(moviesIn(videos).empty());
    session->shutDown();
    // From this answer on the session may end at any moment.
    EXPECT_EQ(session->next(Milliseconds{10'000}), "saved");
    EXPECT_EQ(moviesIn(videos).size(), 1U) << application->process().output();
    session->die();
    EXPECT_EQ(application->process().waitForEnd(Milliseconds{8000}), 0);
    ASSERT_TRUE(isSaved());
    EXPECT_EQ(movie().problems(), "");
    EXPECT_GT(movie().video()->duration, 1.0);
}

TEST_F(RecordingTest, AFrameDraggedToAnotherDisplayIsSavedAndRecordedThereAnew)
{
    ASSERT_TRUE(desktop->arrangeOutputs({{0, 0, 1600, 900}, {1600, 0, 1024, 768}}));
    start();
    pressRecord();
    ASSERT_TRUE(isRecording());
    sleepFor(Milliseconds{2000});
    const QRect onSecond(1800, 200, region.width(), region.height());
    desktop->drag(Application::handleOf(region), Application::handleOf(onSecond), 40);
    desktop->movePointer(farAway);
    ASSERT_TRUE(isSaved()) << application->process().output();
    EXPECT_EQ(movie().problems(), "");
    EXPECT_GE(movie().video()->duration, 1.5);
    EXPECT_TRUE(showsAreaOf(movie().pictureAt(1), region));

    ASSERT_TRUE(desktop->waitForPixel(onSecond.x() - 1, onSecond.center().y(), QColor(255, 214, 10)));
    pressRecord(onSecond);
    ASSERT_TRUE(isRecording()) << application->process().output();
    sleepFor(Milliseconds{1000});
    pressRecord(onSecond);
    EXPECT_TRUE(isSaved(2)) << application->process().output();
}

} // namespace
} // namespace nimbrale::test
