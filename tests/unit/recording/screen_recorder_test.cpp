// A recording from its start to its movie, and starts that fail.

#include "tests/unit/recording/screen_recorder_fixture.h"

#include <chrono>
#include <gmock/gmock.h>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

TEST_F(ScreenRecorderTest, RecordsTheDisplayAsItIs)
{
    startRecording();
    EXPECT_EQ(stream().filter, (ContentFilter{ownDisplay, {}}));
    StreamConfiguration wanted;
    wanted.width = 640;
    wanted.height = 360;
    wanted.preservesAspectRatio = true;
    wanted.minimumFrameInterval = {1, 30};
    wanted.showsCursor = false;
    wanted.queueDepth = 6;
    wanted.readsPixels = true;
    EXPECT_EQ(stream().configuration, wanted);
    EXPECT_THAT(stream().outputs, ElementsAre(OutputType::screen));
    EXPECT_EQ(stream().queueLabel, "Nimbrale.recording");
    EXPECT_EQ(movie().settings.video, movieVideo({640, 360}, 30, AppSettings::RecordingQuality::standard));
    EXPECT_FALSE(movie().settings.audio) << "neither microphone nor system audio: no audio track";
    EXPECT_EQ(movie().settings.file.parent_path(), "/videos");
    EXPECT_THAT(movie().settings.file.filename().string(),
                testing::MatchesRegex("Nimbrale Recording [0-9-]{10} at [0-9.]{8}\\.mov"));
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_TRUE(starts_[0]);
    EXPECT_FALSE(recorder_->isBusy());
    EXPECT_THAT(recorder_->startDate(), Optional(platform_.mainQueue().now()));
}

TEST_F(ScreenRecorderTest, ADisplayAtScale2IsRecordedInItsPixels)
{
    platform_.screens().list[1].backingScaleFactor = 2;
    startRecording();
    EXPECT_EQ(movie().settings.video.width, 1280);
    EXPECT_EQ(stream().configuration.height, 720);
}

TEST_F(ScreenRecorderTest, PicturesReachTheMovieAndStoppingSavesIt)
{
    startRecording();
    stream().deliverPicture(640, 360, 5s);
    platform_.mainQueue().advance(100ms);
    recorder_->stop();
    EXPECT_TRUE(recorder_->isBusy());
    EXPECT_FALSE(recorder_->isRecording());
    stream().completeStop();
    finishMovie();
    ASSERT_EQ(movies_.size(), 1U);
    ASSERT_TRUE(movies_[0]);
    EXPECT_EQ(*movies_[0], "/videos/movie.mov");
    EXPECT_THAT(movie().sessionStart, Optional(5s));
    EXPECT_THAT(movie().end, Optional(100ms));
    EXPECT_FALSE(recorder_->isBusy());
    EXPECT_FALSE(recorder_->startDate());
    EXPECT_FALSE(stream().isAlive);
    EXPECT_THAT(reasons_, IsEmpty());
}

TEST_F(ScreenRecorderTest, StoppedBeforeTheFirstPictureNothingWasRecorded)
{
    startRecording();
    recorder_->stop();
    stream().completeStop();
    while (movies_.empty())
        platform_.mainQueue().runPosted();
    EXPECT_EQ(movies_.at(0).error(), RecorderError::nothingRecorded());
    EXPECT_EQ(movies_.at(0).error().message, "The recording stopped before anything was recorded.");
    EXPECT_TRUE(movie().isCancelled);
}

TEST_F(ScreenRecorderTest, FurtherStartsAreIgnored)
{
    start({"/videos"});
    EXPECT_TRUE(recorder_->isBusy());
    start({"/videos"});
    EXPECT_EQ(capture().contentRequests, 1);
    answerContent();
    start({"/videos"});
    stream().completeStart();
    start({"/videos"});
    recorder_->stop();
    start({"/videos"});
    EXPECT_EQ(capture().contentRequests, 1);
    EXPECT_EQ(starts_.size(), 1U);
}

TEST_F(ScreenRecorderTest, ManyRecordingsInARow)
{
    for (int round = 0; round < 20; ++round) {
        startRecording();
        stream().deliverPicture(640, 360, 1s);
        recorder_->stop();
        stream().completeStop();
        finishMovie();
    }
    EXPECT_EQ(movies_.size(), 20U);
    settle();
    EXPECT_FALSE(platform_.movies().movies.at(0)->isAlive);
}

TEST_F(ScreenRecorderTest, ADeniedMicrophoneStartsNothing)
{
    start({"/videos", {}, 30, ""});
    EXPECT_TRUE(recorder_->isBusy());
    platform_.microphones().answerAccess(false);
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_EQ(starts_[0].error(), RecorderError::microphoneDenied());
    EXPECT_EQ(capture().contentRequests, 0);
    EXPECT_FALSE(recorder_->isBusy());
}

TEST_F(ScreenRecorderTest, WithoutItsDisplayThereIsNothingToRecord)
{
    start({"/videos"});
    answerContent({{1, 1920, 1080}});
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_EQ(starts_[0].error(), RecorderError::noScreen());
    EXPECT_EQ(starts_[0].error().message, "The Nimbrale screen isn't available, so there's nothing to record.");
    EXPECT_THAT(platform_.movies().movies, IsEmpty());
}

TEST_F(ScreenRecorderTest, DisplaysThatCannotBeListedFailTheStart)
{
    start({"/videos"});
    capture().answerContent(fail(ErrorCode::temporary, "No list."));
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_EQ(starts_[0].error(), RecorderError::failed("No list."));
}

TEST_F(ScreenRecorderTest, AMovieThatCannotBeMadeFailsTheStart)
{
    platform_.movies().createError = Error{ErrorCode::permanent, "The folder isn't there."};
    start({"/videos"});
    answerContent();
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_EQ(starts_[0].error().message, "The movie couldn't be created in /videos. The folder isn't there.");
    EXPECT_THAT(capture().streams, IsEmpty());
}

TEST_F(ScreenRecorderTest, ADiskWithoutRoomFailsTheStart)
{
    disk_->freeSpace = ScreenRecorder::roomToKeep - 1;
    start({"/videos"});
    answerContent();
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_EQ(starts_[0].error().message,
              "The movie couldn't be created in /videos. The disk is almost full. Make room there, or choose another "
              "folder in Settings.");
    EXPECT_THAT(platform_.movies().movies, IsEmpty());
}

TEST_F(ScreenRecorderTest, ACaptureThatDoesNotStartLeavesNoMovie)
{
    start({"/videos"});
    answerContent();
    stream().completeStart(fail(ErrorCode::temporary, "No capture."));
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_EQ(starts_[0].error(), RecorderError::failed("No capture."));
    EXPECT_FALSE(recorder_->isBusy());
    while (movie().isAlive)
        std::this_thread::yield();
    EXPECT_TRUE(movie().isCancelled);
    EXPECT_THAT(movies_, IsEmpty());
}

TEST_F(ScreenRecorderTest, AStreamWithoutSoundFailsTheStartWhereSoundIsWanted)
{
    capture().addOutputResult = fail(ErrorCode::unsupported, "No sound here.");
    start({"/videos", {}, 30, {}, true});
    answerContent();
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_EQ(starts_[0].error(), RecorderError::failed("No sound here."));
}

TEST_F(ScreenRecorderTest, TheMovieIsMadeWhenItsEncoderWasLookedFor)
{
    platform_.movies().holdsPreparations = true;
    start({"/videos"});
    answerContent();
    EXPECT_THAT(platform_.movies().prepared,
                ElementsAre(movieVideo({640, 360}, 30, AppSettings::RecordingQuality::standard)));
    EXPECT_THAT(platform_.movies().movies, IsEmpty());
    EXPECT_TRUE(recorder_->isBusy());
    platform_.movies().preparations.at(0)();
    waitFor([&] { return !platform_.movies().movies.empty(); });
    EXPECT_EQ(movie().settings.video, platform_.movies().prepared.at(0));
    stream().completeStart();
    EXPECT_TRUE(recorder_->isRecording());
}

TEST_F(ScreenRecorderTest, AnEncoderThatIsFoundAfterTheStartWasGivenUpMakesNoMovie)
{
    platform_.movies().holdsPreparations = true;
    start({"/videos"});
    answerContent();
    recorder_->stop();
    EXPECT_FALSE(recorder_->isBusy());
    start({"/videos"});
    platform_.movies().preparations.at(0)();
    EXPECT_THAT(platform_.movies().movies, IsEmpty());
}

TEST_F(ScreenRecorderTest, ADiskThatDoesNotTellItsRoomFailsTheStartAfterTenSeconds)
{
    disk_->isSilent = true;
    start({"/videos"});
    answerContent();
    platform_.mainQueue().advance(9900ms);
    EXPECT_TRUE(recorder_->isBusy());
    EXPECT_THAT(starts_, IsEmpty());
    platform_.mainQueue().advance(100ms);
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_EQ(starts_[0].error().message, "The movie couldn't be created in /videos. The disk doesn't answer. Choose "
                                          "another folder in Settings.");
    EXPECT_FALSE(recorder_->isBusy());

    disk_->isSilent = false;
    startRecording();
    EXPECT_EQ(platform_.movies().movies.size(), 1U) << "the answer that came too late makes none";
}

TEST_F(ScreenRecorderTest, ADiskThatDoesNotMakeTheMovieFailsTheStartAfterTenSeconds)
{
    platform_.movies().holdsBeginnings = true;
    start({"/videos"});
    answerContent();
    platform_.mainQueue().advance(9900ms);
    EXPECT_TRUE(recorder_->isBusy());
    platform_.mainQueue().advance(100ms);
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_EQ(starts_[0].error().message, "The movie couldn't be created in /videos. The disk doesn't answer. Choose "
                                          "another folder in Settings.");
    EXPECT_FALSE(recorder_->isBusy());
    EXPECT_TRUE(platform_.movies().beginnings.at(0).expired()) << "the movie is given up";
    EXPECT_THAT(capture().streams, IsEmpty());
}

TEST_F(ScreenRecorderTest, AnAnswerWithinTheTimeStartsTheRecording)
{
    platform_.movies().holdsBeginnings = true;
    start({"/videos"});
    answerContent();
    platform_.mainQueue().advance(9s);
    platform_.movies().answerBeginning();
    stream().completeStart();
    EXPECT_TRUE(recorder_->isRecording());
    platform_.mainQueue().advance(2s);
    EXPECT_TRUE(recorder_->isRecording()) << "nobody waits for the disk any more";
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_TRUE(starts_[0]);
}

TEST_F(ScreenRecorderTest, AStartThatIsGivenUpGivesItsMovieUp)
{
    platform_.movies().holdsBeginnings = true;
    start({"/videos"});
    answerContent();
    ASSERT_FALSE(platform_.movies().beginnings.at(0).expired());
    recorder_->stop();
    EXPECT_TRUE(platform_.movies().beginnings.at(0).expired());
    EXPECT_FALSE(recorder_->isBusy());
    platform_.mainQueue().advance(11s);
    EXPECT_THAT(starts_, IsEmpty());
}

TEST_F(ScreenRecorderTest, ARecorderThatGoesWhileTheDiskIsAskedWaitsForNothing)
{
    disk_->isSilent = true;
    start({"/videos"});
    answerContent();
    waitFor([&] { return disk_->roomQuestions > 0; });
    recorder_.reset();
    disk_->isSilent = false;
    EXPECT_THAT(platform_.movies().beginnings, IsEmpty());
}

TEST_F(ScreenRecorderTest, AStartThatIsGivenUpHasNoEnd)
{
    start({"/videos"});
    recorder_->stop();
    EXPECT_FALSE(recorder_->isBusy());
    answerContent();
    EXPECT_THAT(platform_.movies().movies, IsEmpty());
    EXPECT_THAT(starts_, IsEmpty());
}

} // namespace
} // namespace nimbrale
