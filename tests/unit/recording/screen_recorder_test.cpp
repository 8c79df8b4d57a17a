// A recording from its start to its movie, with everything that may go wrong on the way.

#include "recording/screen_recorder.h"

#include "tests/fakes/fake_platform.h"
#include "tests/fakes/log_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

constexpr DisplayID ownDisplay = 7;

class ScreenRecorderTest : public testing::Test {
protected:
    ScreenRecorderTest()
    {
        platform_.screens().list = {makeScreen(1, {0, 0, 1920, 1080}), makeScreen(ownDisplay, {1920, 0, 640, 360})};
        platform_.microphones().list = {{"desk", "Desk microphone"}, {"head", "Headset"}};
        recorder_->onFinish = [this](const ScreenRecorder::MovieResult& movie) { movies_.push_back(movie); };
        recorder_->onEndingByItself = [this](const std::string& reason) { reasons_.push_back(reason); };
    }

    void start(const ScreenRecorder::Options& options)
    {
        recorder_->start(ownDisplay, options,
                         [this](const ScreenRecorder::StartResult& result) { starts_.push_back(result); });
    }
    void answerContent(std::vector<CaptureDisplay> displays = {{1, 1920, 1080}, {ownDisplay, 640, 360}})
    {
        ShareableContent content;
        content.displays = std::move(displays);
        capture().answerContent(content);
    }
    void startRecording(const ScreenRecorder::Options& options = {"/videos"})
    {
        start(options);
        if (options.microphoneID)
            platform_.microphones().answerAccess(true);
        answerContent();
        stream().completeStart();
        ASSERT_TRUE(recorder_->isRecording());
    }
    /// Returns when the recorder's queue has done what it was given, and the main queue what came of that.
    void settle()
    {
        stream().deliver({OutputType::screen, FrameStatus::idle});
        platform_.mainQueue().runPosted();
    }
    void finishMovie(Result<std::filesystem::path> result = std::filesystem::path("/videos/movie.mov"))
    {
        while (!movie().isFinishAwaited)
            std::this_thread::yield();
        movie().completeFinish(std::move(result));
        platform_.mainQueue().runPosted();
    }

    [[nodiscard]] FakeScreenCapture& capture() { return platform_.screenCapture(); }
    [[nodiscard]] FakeCaptureStream& stream() { return capture().stream(); }
    [[nodiscard]] FakeMovie& movie() { return platform_.movies().movie(); }

    FakePlatform platform_;
    std::uint64_t freeSpace_ = ScreenRecorder::roomToKeep;
    std::shared_ptr<ScreenRecorder> recorder_ = ScreenRecorder::create(
        {platform_.mainQueue(), platform_.screens(), platform_.screenCapture(), platform_.microphones(),
         platform_.movies(), [this](const std::filesystem::path&) { return std::optional(freeSpace_); }});
    std::vector<ScreenRecorder::StartResult> starts_;
    std::vector<ScreenRecorder::MovieResult> movies_;
    std::vector<std::string> reasons_;
};

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
    platform_.movies().createError = Error{ErrorCode::permanent, "The movie couldn't be created in /videos."};
    start({"/videos"});
    answerContent();
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_EQ(starts_[0].error().message, "The movie couldn't be created in /videos.");
    EXPECT_THAT(capture().streams, IsEmpty());
}

TEST_F(ScreenRecorderTest, ADiskWithoutRoomFailsTheStart)
{
    freeSpace_ = ScreenRecorder::roomToKeep - 1;
    start({"/videos"});
    answerContent();
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_EQ(starts_[0].error().message, "The movie couldn't be created in /videos.");
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

TEST_F(ScreenRecorderTest, AStartThatIsGivenUpHasNoEnd)
{
    start({"/videos"});
    recorder_->stop();
    EXPECT_FALSE(recorder_->isBusy());
    answerContent();
    EXPECT_THAT(platform_.movies().movies, IsEmpty());
    EXPECT_THAT(starts_, IsEmpty());
}

TEST_F(ScreenRecorderTest, TheChosenMicrophoneIsUsed)
{
    startRecording({"/videos", {}, 30, "head"});
    EXPECT_EQ(platform_.microphones().opened.at(0)->id, "head");
    EXPECT_EQ(movie().settings.audio, MovieAudio());
    EXPECT_THAT(stream().outputs, ElementsAre(OutputType::screen));
    EXPECT_FALSE(stream().configuration.audio);
}

TEST_F(ScreenRecorderTest, AMicrophoneThatIsNotThereGivesWayToTheDefaultOne)
{
    platform_.microphones().preferred = "head";
    startRecording({"/videos", {}, 30, "gone"});
    EXPECT_EQ(platform_.microphones().opened.at(0)->id, "head");
}

TEST_F(ScreenRecorderTest, WithoutADefaultMicrophoneTheFirstIsUsed)
{
    startRecording({"/videos", {}, 30, ""});
    EXPECT_EQ(platform_.microphones().opened.at(0)->id, "desk");
}

TEST_F(ScreenRecorderTest, WithoutAnyMicrophoneTheStartFails)
{
    platform_.microphones().list.clear();
    start({"/videos", {}, 30, ""});
    platform_.microphones().answerAccess(true);
    answerContent();
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_EQ(starts_[0].error(), RecorderError::failed("There's no microphone to record from."));
    EXPECT_THAT(platform_.movies().movies, IsEmpty());
}

TEST_F(ScreenRecorderTest, AMicrophoneThatCannotBeOpenedIsNamed)
{
    platform_.microphones().openResult = fail(ErrorCode::temporary, "busy");
    const LogCapture log;
    start({"/videos", {}, 30, "head"});
    platform_.microphones().answerAccess(true);
    answerContent();
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_EQ(starts_[0].error(), RecorderError::failed("The microphone Headset can't be used."));
}

TEST_F(ScreenRecorderTest, TheMicrophoneIsHeardAndClosedAtTheEnd)
{
    startRecording({"/videos", {}, 30, "desk"});
    stream().deliverPicture(640, 360, 10s);
    AudioBuffer sound;
    sound.channels = 1;
    sound.samples.assign(48000, 0.5F);
    platform_.microphones().opened.at(0)->play(sound, 10s);
    settle();
    ASSERT_EQ(movie().sounds.size(), 1U);
    EXPECT_EQ(movie().sounds[0].time, 10s);
    EXPECT_EQ(movie().sounds[0].audio.samples.at(0), 0.5F);

    recorder_->stop();
    stream().completeStop();
    EXPECT_FALSE(platform_.microphones().opened.at(0)->isOpen);
    finishMovie();
}

TEST_F(ScreenRecorderTest, SystemAudioComesWithTheStream)
{
    startRecording({"/videos", {}, 30, {}, true});
    EXPECT_THAT(stream().outputs, ElementsAre(OutputType::screen, OutputType::audio));
    AudioConfiguration wanted;
    wanted.excludesOwnAudio = true;
    wanted.sampleRate = 48000;
    wanted.channels = 2;
    EXPECT_THAT(stream().configuration.audio, Optional(wanted));
    stream().deliverPicture(640, 360, 10s);
    AudioBuffer sound;
    sound.samples.assign(96000, 0.25F);
    stream().deliverSound(sound, 10s);
    ASSERT_EQ(movie().sounds.size(), 1U);
    EXPECT_EQ(movie().sounds[0].audio.samples.at(0), 0.25F);
    recorder_->stop();
    stream().completeStop();
    finishMovie();
}

TEST_F(ScreenRecorderTest, ADisplayThatGoesEndsTheRecordingAndSavesIt)
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

TEST_F(ScreenRecorderTest, ADisplayThatGoesWhileStoppingFinishesOnce)
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

TEST_F(ScreenRecorderTest, AWriterThatFailsEndsTheRecordingAndSavesWhatThereIs)
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

TEST_F(ScreenRecorderTest, AMissingEndIsTold)
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

TEST_F(ScreenRecorderTest, ADiskThatIsAlmostFullEndsTheRecordingInOrder)
{
    startRecording();
    stream().deliverPicture(640, 360, 1s);
    platform_.mainQueue().advance(RecordingPipeline::tickInterval);
    settle();
    EXPECT_THAT(reasons_, IsEmpty());
    freeSpace_ = ScreenRecorder::roomToKeep - 1;
    platform_.mainQueue().advance(RecordingPipeline::tickInterval);
    settle();
    EXPECT_THAT(reasons_, ElementsAre("The disk is almost full."));
    EXPECT_EQ(stream().stops, 1);
    stream().completeStop();
    finishMovie();
}

TEST_F(ScreenRecorderTest, AStillPictureIsKeptInTheMovie)
{
    startRecording();
    stream().deliverPicture(640, 360, 0s);
    for (int tick = 0; tick < 4; ++tick) {
        platform_.mainQueue().advance(RecordingPipeline::tickInterval);
        settle();
    }
    EXPECT_THAT(movie().repeats, ElementsAre(500ms, 1s, 1500ms, 2s));
}

TEST_F(ScreenRecorderTest, ARecorderThatGoesSavesTheMovie)
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
