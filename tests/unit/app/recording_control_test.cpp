// Recording as the user has it: the button, the time on the frame, what is told, and quitting.

#include "recording/recording_folder.h"
#include "tests/unit/app/recording_control_fixture.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

namespace fs = std::filesystem;

TEST_F(RecordingControlTest, TheButtonStartsAndStops)
{
    launch();
    startRecording();
    EXPECT_EQ(movie().settings.file.parent_path(), home_ / "Videos");
    EXPECT_TRUE(fs::is_directory(home_ / "Videos"));
    pressRecord();
    EXPECT_TRUE(delegate_->recording().isBusy());
    capture().stream().completeStop();
    finishMovie();
    EXPECT_THAT(workspace().revealed, ElementsAre("/videos/movie.mov"));
    EXPECT_THAT(workspace().alerts, IsEmpty());
    EXPECT_FALSE(delegate_->recording().isBusy());
}

TEST_F(RecordingControlTest, TheSettingsOfThatMomentCount)
{
    settings_.setRecordMicrophone(true);
    settings_.setRecordMicrophoneID("head");
    settings_.setRecordSystemAudio(true);
    settings_.setRecordQuality(AppSettings::RecordingQuality::high);
    settings_.setFramerate(60);
    fs::create_directories(home_ / "Talks");
    settings_.setRecordFolderBookmark(recording_folder::bookmarkOf(home_ / "Talks"));
    platform_.microphones().list = {{"head", "Headset"}};
    launch();
    pressRecord();
    platform_.microphones().answerAccess(true);
    answerOwnDisplay();
    capture().stream().completeStart();
    EXPECT_EQ(movie().settings.file.parent_path(), fs::canonical(home_ / "Talks"));
    EXPECT_EQ(movie().settings.video.expectedFrameRate, 60);
    EXPECT_EQ(movie().settings.video.averageBitRate, static_cast<std::int64_t>(0.15 * 800 * 600 * 60));
    EXPECT_TRUE(movie().settings.audio);
    EXPECT_EQ(platform_.microphones().opened.at(0)->id, "head");
    EXPECT_TRUE(capture().stream().configuration.audio);
}

TEST_F(RecordingControlTest, TheFrameShowsTheTimeEveryHalfSecond)
{
    launch();
    EXPECT_FALSE(timeOnFrame());
    startRecording();
    EXPECT_THAT(timeOnFrame(), Optional(0.0));
    queue().advance(499ms);
    EXPECT_THAT(timeOnFrame(), Optional(0.0));
    queue().advance(1ms);
    EXPECT_THAT(timeOnFrame(), Optional(0.5));
    queue().advance(61s);
    EXPECT_THAT(timeOnFrame(), Optional(61.5));
    pressRecord();
    capture().stream().completeStop();
    finishMovie();
    EXPECT_FALSE(timeOnFrame());
    queue().advance(5s);
    EXPECT_FALSE(timeOnFrame());
}

TEST_F(RecordingControlTest, OnceItHasEndedNothingWakesForItsTime)
{
    launch();
    queue().advance(10s);
    const std::size_t before = queue().pendingTimers();
    startRecording();
    EXPECT_GT(queue().pendingTimers(), before) << "the control: while it runs something does";
    pressRecord();
    capture().stream().completeStop();
    finishMovie();
    EXPECT_EQ(queue().pendingTimers(), before);
}

TEST_F(RecordingControlTest, WhileBusyTheButtonDoesNothing)
{
    launch();
    const std::size_t before = streams();
    pressRecord();
    pressRecord();
    EXPECT_EQ(capture().pendingContent.size(), 1U);
    answerOwnDisplay();
    pressRecord();
    capture().stream().completeStart();
    capture().stream().deliverPicture(800, 600, 1s);
    pressRecord();
    pressRecord();
    EXPECT_EQ(capture().stream().stops, 1);
    capture().stream().completeStop();
    pressRecord();
    finishMovie();
    EXPECT_EQ(streams(), before + 1);
    EXPECT_FALSE(delegate_->recording().isRecording());
}

TEST_F(RecordingControlTest, WithoutAVirtualDisplayRecordingIsNotAvailable)
{
    platform_.virtualDisplays().createResult = fail(ErrorCode::unsupported, "no");
    launch();
    pressRecord();
    ASSERT_FALSE(workspace().alerts.empty());
    EXPECT_EQ(toldAlert(), "Recording isn't available");
    EXPECT_EQ(workspace().alerts.back().informativeText,
              "Nimbrale records its own screen, which couldn't be created on this Mac.");
    EXPECT_EQ(workspace().alerts.back().buttons.size(), 1U);
    EXPECT_FALSE(delegate_->recording().isBusy());
    EXPECT_THAT(platform_.movies().movies, IsEmpty());
}

// There is no button to press then, but a key of the desktop may ask for a recording at any time.
TEST_F(RecordingControlTest, BeforeThereIsAFrameNothingIsRecordedAndNothingTold)
{
    delegate_->applicationWillFinishLaunching();
    delegate_->toggleRecording();
    EXPECT_THAT(workspace().alerts, IsEmpty());
    finishStart();
    ASSERT_TRUE(delegate_->editor());

    settings_.setDisplayID(otherDisplay);
    settle();
    ASSERT_TRUE(isRestarting());
    delegate_->toggleRecording();
    EXPECT_FALSE(delegate_->recording().isBusy());
    EXPECT_THAT(workspace().alerts, IsEmpty());
}

TEST_F(RecordingControlTest, ADeniedMicrophoneIsToldWithTheWayToTheSettings)
{
    settings_.setRecordMicrophone(true);
    launch();
    pressRecord();
    platform_.microphones().answerAccess(false);
    EXPECT_EQ(toldAlert(), "Microphone access needed");
    EXPECT_EQ(workspace().alerts.back().informativeText,
              "To record your voice, allow Nimbrale in System Settings → Privacy & Security → Microphone. Or turn the "
              "microphone off in Settings → Recording.");
    EXPECT_THAT(workspace().alerts.back().buttons, ElementsAre("Open System Settings", "Cancel"));
    workspace().answerAlert(0);
    EXPECT_THAT(workspace().locations,
                ElementsAre("x-apple.systempreferences:com.apple.preference.security?Privacy_Microphone"));

    pressRecord();
    platform_.microphones().answerAccess(false);
    workspace().answerAlert(1);
    EXPECT_EQ(workspace().locations.size(), 1U);
}

TEST_F(RecordingControlTest, AnotherFailureToStartIsTold)
{
    platform_.movies().createError = Error{ErrorCode::permanent, "The folder isn't there."};
    launch();
    pressRecord();
    answerOwnDisplay();
    EXPECT_EQ(toldAlert(), "Recording couldn't start");
    EXPECT_EQ(workspace().alerts.back().informativeText,
              "The movie couldn't be created in " + (home_ / "Videos").string() + ". The folder isn't there.");
    EXPECT_FALSE(timeOnFrame());
}

TEST_F(RecordingControlTest, AFolderThatCannotBeMadeIsToldWithTheReason)
{
    std::ofstream(home_) << "a file";
    launch();
    pressRecord();
    EXPECT_EQ(toldAlert(), "Recording couldn't start");
    EXPECT_EQ(workspace().alerts.back().informativeText,
              "The movie couldn't be created in " + (home_ / "Videos").string() +
                  ". The system says: Not a directory. Choose another folder in Settings.");
    EXPECT_FALSE(delegate_->recording().isBusy());
    EXPECT_THAT(platform_.movies().movies, IsEmpty());
}

TEST_F(RecordingControlTest, AMovieThatCouldNotBeSavedIsTold)
{
    launch();
    startRecording();
    pressRecord();
    capture().stream().completeStop();
    finishMovie(fail(ErrorCode::permanent, "The movie couldn't be saved."));
    EXPECT_EQ(toldAlert(), "The recording couldn't be saved");
    EXPECT_EQ(workspace().alerts.back().informativeText, "The movie couldn't be saved.");
    EXPECT_THAT(workspace().revealed, IsEmpty());
}

TEST_F(RecordingControlTest, QuittingWhileRecordingSavesFirstAndRevealsNothing)
{
    launch();
    startRecording();
    delegate_->editor()->onClose();
    EXPECT_EQ(workspace().terminations, 0);
    capture().stream().completeStop();
    finishMovie();
    EXPECT_EQ(workspace().terminations, 1);
    EXPECT_THAT(workspace().revealed, IsEmpty());
    EXPECT_THAT(workspace().alerts, IsEmpty());
}

TEST_F(RecordingControlTest, QuittingWhileAMovieIsSavedWaitsForIt)
{
    launch();
    startRecording();
    pressRecord();
    capture().stream().completeStop();
    delegate_->editor()->onClose();
    EXPECT_EQ(workspace().terminations, 0);
    finishMovie(fail(ErrorCode::permanent, "no"));
    EXPECT_EQ(workspace().terminations, 1);
    EXPECT_THAT(workspace().alerts, IsEmpty());
}

TEST_F(RecordingControlTest, QuittingWhileARecordingStartsQuitsAtOnce)
{
    launch();
    pressRecord();
    delegate_->editor()->onClose();
    EXPECT_EQ(workspace().terminations, 1);
    answerOwnDisplay();
    EXPECT_THAT(platform_.movies().movies, IsEmpty());
}

TEST_F(RecordingControlTest, ARestartOfTheChainSavesTheRecordingAsUsualAndTheUserIsTold)
{
    launch();
    startRecording();
    FakeCaptureStream& recording = capture().stream();
    settings_.setDisplayID(otherDisplay);
    settle();
    EXPECT_TRUE(isRestarting());
    EXPECT_EQ(recording.stops, 1);
    recording.completeStop();
    finishMovie();
    EXPECT_THAT(workspace().revealed, ElementsAre("/videos/movie.mov"));
    ASSERT_EQ(workspace().notifications.size(), 1U);
    EXPECT_EQ(workspace().notifications[0].title, "The recording has ended");
    EXPECT_EQ(
        workspace().notifications[0].text,
        "The shared screen was set up anew. The movie is saved; press the record button to go on in another one.");
}

TEST_F(RecordingControlTest, ARestartOfTheChainOpensNoAlertWhereThereAreNoNotifications)
{
    launch();
    startRecording();
    FakeCaptureStream& recording = capture().stream();
    workspace().showsNotifications = false;
    settings_.setDisplayID(otherDisplay);
    settle();
    recording.completeStop();
    finishMovie();
    ASSERT_EQ(workspace().unshown.size(), 1U) << "the control: it was to be told";
    workspace().unshown.front()();
    EXPECT_THAT(workspace().alerts, IsEmpty());
    EXPECT_THAT(workspace().revealed, ElementsAre("/videos/movie.mov"));
}

TEST_F(RecordingControlTest, ARestartOfTheChainWhileARecordingStartsIsTold)
{
    launch();
    pressRecord();
    ASSERT_TRUE(delegate_->recording().isBusy());
    settings_.setDisplayID(otherDisplay);
    settle();
    EXPECT_TRUE(isRestarting());
    EXPECT_FALSE(delegate_->recording().isBusy());
    ASSERT_EQ(workspace().notifications.size(), 1U);
    EXPECT_EQ(workspace().notifications[0].title, "Recording couldn't start");
    EXPECT_EQ(workspace().notifications[0].text, "The shared screen was set up anew. Press the record button again.");
}

TEST_F(RecordingControlTest, ARestartOfTheChainWithoutARecordingIsNotToldOf)
{
    launch();
    settings_.setDisplayID(otherDisplay);
    settle();
    EXPECT_TRUE(isRestarting());
    EXPECT_THAT(workspace().notifications, IsEmpty());
}

TEST_F(RecordingControlTest, ARecordingThatEndsByItselfIsToldAndRevealed)
{
    launch();
    startRecording();
    capture().stream().stopByItself({ErrorCode::captureFailedToStart, "The display is not connected any more."});
    finishMovie();
    ASSERT_EQ(workspace().notifications.size(), 1U);
    EXPECT_EQ(workspace().notifications[0].title, "The recording has ended");
    EXPECT_EQ(workspace().notifications[0].text, "The display is not connected any more.");
    EXPECT_THAT(workspace().revealed, ElementsAre("/videos/movie.mov"));
}

TEST_F(RecordingControlTest, WithoutNotificationsItIsToldInAnAlert)
{
    workspace().showsNotifications = false;
    launch();
    startRecording();
    capture().stream().stopByItself({ErrorCode::captureFailedToStart, "The display is not connected any more."});
    ASSERT_EQ(workspace().unshown.size(), 1U);
    workspace().unshown[0]();
    EXPECT_EQ(toldAlert(), "The recording has ended");
    finishMovie();
}

} // namespace
} // namespace nimbrale
