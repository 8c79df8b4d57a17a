// Recordings that end without being told to, and movies that are kept whole meanwhile.

#include "tests/fakes/log_capture.h"
#include "tests/unit/recording/screen_recorder_fixture.h"

#include <chrono>
#include <gmock/gmock.h>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

using ScreenRecorderEndingsTest = ScreenRecorderTest;

TEST_F(ScreenRecorderEndingsTest, ADisplayThatGoesEndsTheRecordingAndSavesIt)
{
    const LogCapture log;
    startRecording();
    stream().deliverPicture(640, 360, 1s);
    stream().stopByItself({ErrorCode::captureFailedToStart, "The display has gone."});
    finishMovie();
    EXPECT_THAT(reasons_, ElementsAre("The display has gone."));
    ASSERT_EQ(movies_.size(), 1U);
    EXPECT_TRUE(movies_[0]);
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{QtCriticalMsg, "Nimbrale.recording",
                                                          "Recording stream stopped: The display has gone."}));
}

TEST_F(ScreenRecorderEndingsTest, ADisplayThatGoesWhileStoppingFinishesOnce)
{
    const LogCapture log;
    startRecording();
    stream().deliverPicture(640, 360, 1s);
    recorder_->stop();
    stream().stopByItself({ErrorCode::captureFailedToStart, "The display has gone."});
    stream().completeStop();
    finishMovie();
    EXPECT_EQ(movies_.size(), 1U);
    EXPECT_THAT(reasons_, IsEmpty());
}

TEST_F(ScreenRecorderEndingsTest, AWriterThatFailsEndsTheRecordingAndSavesWhatThereIs)
{
    const LogCapture log;
    startRecording();
    stream().deliverPicture(640, 360, 1s);
    movie().failure = Error{ErrorCode::permanent, "The disk is full."};
    stream().deliverPicture(640, 360, 2s);
    platform_.mainQueue().runPosted();
    EXPECT_THAT(reasons_, ElementsAre("The disk is full."));
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{QtCriticalMsg, "Nimbrale.recording",
                                                          "Recording failed: The disk is full."}));
    EXPECT_EQ(stream().stops, 1);
    stream().completeStop();
    finishMovie();
    ASSERT_EQ(movies_.size(), 1U);
    EXPECT_TRUE(movies_[0]);
}

TEST_F(ScreenRecorderEndingsTest, AMissingEndIsTold)
{
    const LogCapture log;
    startRecording();
    stream().deliverPicture(640, 360, 1s);
    recorder_->stop();
    stream().completeStop();
    settle();
    movie().failure = Error{ErrorCode::permanent, "The encoder doesn't answer."};
    finishMovie();
    EXPECT_THAT(reasons_, ElementsAre("The encoder doesn't answer."));
    ASSERT_EQ(movies_.size(), 1U);
    EXPECT_TRUE(movies_[0]);
}

TEST_F(ScreenRecorderEndingsTest, ADiskThatIsAlmostFullEndsTheRecordingInOrder)
{
    startRecording();
    stream().deliverPicture(640, 360, 1s);
    const int asked = disk_->roomQuestions;
    waitFor([&] {
        platform_.mainQueue().advance(RecordingPipeline::tickInterval);
        return disk_->roomQuestions >= asked + 2; // So the first of them was answered.
    });
    EXPECT_THAT(reasons_, IsEmpty());
    disk_->freeSpace = ScreenRecorder::roomToKeep - 1;
    waitFor([&] {
        platform_.mainQueue().advance(RecordingPipeline::tickInterval);
        return !reasons_.empty();
    });
    EXPECT_THAT(reasons_, ElementsAre("The disk is almost full."));
    EXPECT_EQ(stream().stops, 1);
    stream().completeStop();
    finishMovie();
}

TEST_F(ScreenRecorderEndingsTest, ADiskThatDoesNotTellItsRoomHoldsUpNoPicture)
{
    startRecording();
    disk_->isSilent = true;
    const int asked = disk_->roomQuestions;
    waitFor([&] {
        platform_.mainQueue().advance(RecordingPipeline::tickInterval);
        return disk_->roomQuestions > asked;
    });
    for (int second = 1; second <= 20; ++second) {
        platform_.mainQueue().advance(RecordingPipeline::tickInterval);
        stream().deliverPicture(640, 360, second * 1s);
    }
    EXPECT_EQ(movie().pictures.size(), 20U);
    EXPECT_EQ(disk_->roomQuestions, asked + 1) << "a question is asked once";
    EXPECT_TRUE(recorder_->isRecording());
    disk_->isSilent = false;
    recorder_->stop();
    stream().completeStop();
    finishMovie();
}

TEST_F(ScreenRecorderEndingsTest, ADiskThatDoesNotAnswerEndsTheRecordingAndSavesIt)
{
    const LogCapture log;
    startRecording();
    stream().deliverPicture(640, 360, 1s);
    movie().isStalled = true;
    platform_.mainQueue().advance(RecordingPipeline::tickInterval);
    settle();
    EXPECT_THAT(reasons_, ElementsAre("The recording ended because the disk doesn't answer."));
    EXPECT_THAT(log.lines(),
                ElementsAre(LogCapture::Line{QtCriticalMsg, "Nimbrale.recording", "The disk doesn't answer."}));
    EXPECT_TRUE(recorder_->isStalled());
    stream().completeStop();
    letTicksPass(60);
    EXPECT_EQ(reasons_.size() + static_cast<std::size_t>(savingStalls_), 1U) << "it is told once";
    movie().isStalled = false;
    finishMovie();
    ASSERT_EQ(movies_.size(), 1U);
    EXPECT_TRUE(movies_[0]);
    EXPECT_FALSE(recorder_->isStalled());
}

TEST_F(ScreenRecorderEndingsTest, ADiskThatDoesNotAnswerAfterTheStopIsToldOnceAndTheMovieSavedWhenItDoes)
{
    const LogCapture log;
    startRecording();
    stream().deliverPicture(640, 360, 1s);
    recorder_->stop();
    stream().completeStop();
    settle();
    EXPECT_EQ(savingStalls_, 0);
    movie().isStalled = true;
    letTicksPass(60);
    EXPECT_EQ(savingStalls_, 1);
    EXPECT_TRUE(recorder_->isStalled());
    EXPECT_TRUE(recorder_->isBusy());
    EXPECT_THAT(reasons_, IsEmpty());
    EXPECT_THAT(movies_, IsEmpty());
    movie().isStalled = false;
    finishMovie();
    ASSERT_EQ(movies_.size(), 1U);
    EXPECT_TRUE(movies_[0]);
    EXPECT_FALSE(recorder_->isBusy());
}

TEST_F(ScreenRecorderEndingsTest, AStillPictureIsKeptInTheMovie)
{
    startRecording();
    stream().deliverPicture(640, 360, 0s);
    letTicksPass(4);
    EXPECT_THAT(movie().repeats, ElementsAre(500ms, 1s, 1500ms, 2s));
}

TEST_F(ScreenRecorderEndingsTest, ARecorderThatGoesSavesTheMovie)
{
    startRecording();
    stream().deliverPicture(640, 360, 1s);
    recorder_.reset();
    EXPECT_TRUE(movie().end);
    EXPECT_FALSE(movie().isAlive);
    EXPECT_FALSE(stream().isAlive);
    EXPECT_FALSE(movie().isFinishAwaited);
    platform_.mainQueue().runPosted();
    EXPECT_THAT(movies_, IsEmpty());
}

} // namespace
} // namespace nimbrale
