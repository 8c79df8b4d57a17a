// What becomes of the samples: pictures, sound, stillness, and the end.

#include "recording/recording_pipeline.h"

#include "tests/fakes/fake_movies.h"
#include "tests/fakes/fake_screen_capture.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

/// Fails as often as a test wants, then hands out black pictures.
class FailingReader final : public SurfaceReader {
public:
    explicit FailingReader(ErrorCode code, int failures = 1'000'000) : code_(code), failures_(failures) {}

    [[nodiscard]] Result<Picture> read(const Surface& surface) override
    {
        if (failures_ == 0)
            return pictures_.read(surface);
        --failures_;
        return fail(code_, "no pixels");
    }

private:
    ErrorCode code_;
    int failures_;
    FakeSurfaceReader pictures_;
};

class RecordingPipelineTest : public testing::Test {
protected:
    void make(bool recordsAudio, std::unique_ptr<SurfaceReader> reader = std::make_unique<FakeSurfaceReader>())
    {
        pipeline_.emplace(std::make_unique<FakeMovieWriter>(movie_), std::move(reader), recordsAudio);
        pipeline_->onFailure = [this](const Error& error) { failures_.push_back(error.message); };
    }

    static CaptureSample picture(std::chrono::nanoseconds time, FrameStatus status = FrameStatus::complete)
    {
        return {OutputType::screen, status, std::make_shared<FakeSurface>(4, 4), time};
    }
    static AudioBuffer sound(std::size_t frames, float value)
    {
        AudioBuffer buffer;
        buffer.samples.assign(frames * 2, value);
        return buffer;
    }
    void finish(std::chrono::nanoseconds now)
    {
        pipeline_->finish(now, [this](const RecordingPipeline::MovieResult& result) { result_ = result; });
    }
    [[nodiscard]] std::size_t recordedFrames() const
    {
        std::size_t frames = 0;
        for (const FakeMovie::Sound& piece : movie_->sounds)
            frames += piece.audio.frameCount();
        return frames;
    }

    std::shared_ptr<FakeMovie> movie_ = std::make_shared<FakeMovie>();
    std::vector<std::string> failures_;
    std::optional<RecordingPipeline::MovieResult> result_;
    /// Last: a finish under way tells its result when it goes.
    std::optional<RecordingPipeline> pipeline_;
};

TEST_F(RecordingPipelineTest, OnlyCompletePicturesCount)
{
    make(false);
    for (const FrameStatus status :
         {FrameStatus::idle, FrameStatus::blank, FrameStatus::suspended, FrameStatus::started, FrameStatus::stopped})
        pipeline_->takeScreen(picture(1s, status));
    CaptureSample withoutPicture = picture(1s);
    withoutPicture.surface = nullptr;
    pipeline_->takeScreen(withoutPicture);
    CaptureSample withoutStatus = picture(1s);
    withoutStatus.status.reset();
    pipeline_->takeScreen(withoutStatus);
    EXPECT_FALSE(movie_->sessionStart);

    pipeline_->takeScreen(picture(2s));
    EXPECT_THAT(movie_->sessionStart, Optional(2s));
    EXPECT_THAT(movie_->pictures, ElementsAre(2s));
}

TEST_F(RecordingPipelineTest, APictureThatIsTooMuchIsLeftOut)
{
    make(false);
    pipeline_->takeScreen(picture(1s));
    movie_->isReadyForVideo = false;
    pipeline_->takeScreen(picture(2s));
    movie_->isReadyForVideo = true;
    pipeline_->takeScreen(picture(3s));
    EXPECT_THAT(movie_->pictures, ElementsAre(1s, 3s));
    EXPECT_EQ(movie_->dropped, 1);
}

TEST_F(RecordingPipelineTest, APictureThatWasLeftOutComesWithTheNextTickAndNotTheOneBeforeItAgain)
{
    make(false);
    pipeline_->takeScreen(picture(1s));
    movie_->isReadyForVideo = false;
    pipeline_->takeScreen(picture(2s));
    pipeline_->tick(2s + 100ms);
    EXPECT_THAT(movie_->pictures, ElementsAre(1s)) << "there is no room yet";
    movie_->isReadyForVideo = true;
    pipeline_->tick(2s + 200ms);
    EXPECT_THAT(movie_->pictures, ElementsAre(1s, 2s + 200ms));
    EXPECT_THAT(movie_->repeats, IsEmpty());
    pipeline_->tick(3s);
    EXPECT_THAT(movie_->pictures, ElementsAre(1s, 2s + 200ms)) << "once";
    EXPECT_THAT(movie_->repeats, ElementsAre(3s));
}

TEST_F(RecordingPipelineTest, APictureThatWasLeftOutIsForgottenForALaterOne)
{
    make(false);
    pipeline_->takeScreen(picture(1s));
    movie_->isReadyForVideo = false;
    pipeline_->takeScreen(picture(2s));
    movie_->isReadyForVideo = true;
    pipeline_->takeScreen(picture(3s));
    pipeline_->tick(3s + 100ms);
    EXPECT_THAT(movie_->pictures, ElementsAre(1s, 3s));
}

TEST_F(RecordingPipelineTest, APictureThatWasLeftOutIsTheLastOneAtTheEnd)
{
    make(false);
    pipeline_->takeScreen(picture(1s));
    movie_->isReadyForVideo = false;
    pipeline_->takeScreen(picture(2s));
    movie_->isReadyForVideo = true;
    finish(2s + 50ms);
    EXPECT_THAT(movie_->pictures, ElementsAre(1s, 2s + 50ms));
}

TEST_F(RecordingPipelineTest, SoundBeforeTheFirstPictureIsDropped)
{
    make(true);
    pipeline_->takeAudio(sound(48000, 0.5F), 1s);
    pipeline_->takeScreen(picture(2s));
    finish(2s);
    EXPECT_THAT(movie_->sounds, IsEmpty());
}

TEST_F(RecordingPipelineTest, SoundIsWrittenThreeTenthsOfASecondBehindAndWholeAtTheEnd)
{
    make(true);
    pipeline_->takeScreen(picture(10s));
    pipeline_->takeAudio(sound(48000, 0.5F), 10s);
    ASSERT_EQ(movie_->sounds.size(), 1U);
    EXPECT_EQ(movie_->sounds[0].time, 10s);
    EXPECT_EQ(movie_->sounds[0].audio.frameCount(), 48000U - 14400U);

    finish(11s);
    ASSERT_EQ(movie_->sounds.size(), 2U);
    EXPECT_EQ(movie_->sounds[1].time, 10s + 700ms);
    EXPECT_EQ(movie_->sounds[1].audio.frameCount(), 14400U);
    EXPECT_THAT(movie_->end, Optional(11s));
}

TEST_F(RecordingPipelineTest, WithoutAnAudioTrackNoSoundIsWritten)
{
    make(false);
    pipeline_->takeScreen(picture(1s));
    pipeline_->takeAudio(sound(48000, 0.5F), 1s);
    pipeline_->tick(10s);
    finish(11s);
    EXPECT_THAT(movie_->sounds, IsEmpty());
}

TEST_F(RecordingPipelineTest, AStillPictureIsRepeatedEveryTick)
{
    make(false);
    pipeline_->tick(1s);
    EXPECT_THAT(movie_->repeats, IsEmpty()) << "there is no picture yet";
    pipeline_->takeScreen(picture(2s));
    pipeline_->tick(2s + 399ms);
    EXPECT_THAT(movie_->repeats, IsEmpty());
    pipeline_->tick(2s + 500ms);
    pipeline_->tick(3s - 1ms);
    EXPECT_THAT(movie_->repeats, ElementsAre(2s + 500ms, 3s - 1ms));
}

TEST_F(RecordingPipelineTest, AMovingPictureIsNotRepeated)
{
    make(false);
    for (std::chrono::nanoseconds time = 1s; time < 5s; time += 100ms) {
        pipeline_->takeScreen(picture(time));
        pipeline_->tick(time + 50ms);
    }
    EXPECT_THAT(movie_->repeats, IsEmpty());
}

TEST_F(RecordingPipelineTest, AStillPictureIsNotRepeatedIntoAFullQueue)
{
    make(false);
    pipeline_->takeScreen(picture(1s));
    movie_->isReadyForVideo = false;
    pipeline_->tick(2s);
    EXPECT_THAT(movie_->repeats, IsEmpty());
}

TEST_F(RecordingPipelineTest, ASourceThatSleepsLeavesSilenceAndIsHeardAgainWhenItWakes)
{
    make(true);
    pipeline_->takeScreen(picture(0s));
    for (std::chrono::nanoseconds now = 500ms; now <= 1h; now += 500ms)
        pipeline_->tick(now);
    const std::size_t before = recordedFrames();
    EXPECT_GT(before, 48000U * (3600 - 4));
    EXPECT_LE(before, 48000U * 3600);

    pipeline_->takeAudio(sound(48000, 0.5F), 1h);
    pipeline_->takeAudio(sound(48000, 0.5F), 1h + 1s);
    const AudioBuffer& last = movie_->sounds.back().audio;
    EXPECT_FLOAT_EQ(last.samples.back(), 0.5F);
    EXPECT_EQ(recordedFrames(), 48000U * 3602 - 14400U);
}

TEST_F(RecordingPipelineTest, SoundThatGoesOnIsNotTouchedByTheTicks)
{
    make(true);
    pipeline_->takeScreen(picture(0s));
    for (std::chrono::nanoseconds now = 0s; now < 10s; now += 500ms) {
        pipeline_->takeAudio(sound(24000, 0.25F), now);
        pipeline_->tick(now + 490ms);
    }
    finish(10s);
    for (const FakeMovie::Sound& piece : movie_->sounds)
        EXPECT_TRUE(std::all_of(piece.audio.samples.begin(), piece.audio.samples.end(),
                                [](float sample) { return sample == 0.25F; }));
    EXPECT_EQ(recordedFrames(), 480000U);
}

TEST_F(RecordingPipelineTest, StoppedBeforeThereWasAPictureNothingIsLeft)
{
    make(true);
    finish(1s);
    EXPECT_TRUE(movie_->isCancelled);
    ASSERT_TRUE(result_);
    EXPECT_EQ(result_->error(), RecorderError::nothingRecorded());
}

TEST_F(RecordingPipelineTest, AWriterThatFailedBeforeThereWasAPictureSaysWhy)
{
    make(false);
    movie_->failure = Error{ErrorCode::permanent, "The disk is on fire."};
    finish(1s);
    EXPECT_TRUE(movie_->isCancelled);
    ASSERT_TRUE(result_);
    EXPECT_EQ(result_->error(), RecorderError::failed("The disk is on fire."));
}

TEST_F(RecordingPipelineTest, WhatWasRecordedBeforeAFailureIsFinished)
{
    make(false);
    pipeline_->takeScreen(picture(1s));
    EXPECT_THAT(failures_, IsEmpty());
    movie_->failure = Error{ErrorCode::permanent, "The disk is full."};
    pipeline_->tick(2s);
    pipeline_->tick(3s);
    EXPECT_THAT(failures_, ElementsAre("The disk is full."));

    finish(3s);
    EXPECT_FALSE(movie_->isCancelled);
    movie_->completeFinish("/videos/movie.mov");
    ASSERT_TRUE(result_ && *result_);
    EXPECT_EQ(**result_, "/videos/movie.mov");
}

TEST_F(RecordingPipelineTest, AFailureSinceTheLastLookIsTold)
{
    make(false);
    pipeline_->takeScreen(picture(1s));
    movie_->failure = Error{ErrorCode::permanent, "The disk is full."};
    finish(2s);
    EXPECT_THAT(failures_, ElementsAre("The disk is full."));
    EXPECT_THAT(movie_->end, Optional(2s));
}

TEST_F(RecordingPipelineTest, AMissingEndIsToldBeforeTheMovie)
{
    make(false);
    pipeline_->takeScreen(picture(1s));
    finish(2s);
    EXPECT_THAT(failures_, IsEmpty());
    movie_->failure = Error{ErrorCode::permanent, "The encoder doesn't answer."};
    movie_->completeFinish("/videos/movie.mov");
    EXPECT_THAT(failures_, ElementsAre("The encoder doesn't answer."));
    ASSERT_TRUE(result_ && *result_);
}

TEST_F(RecordingPipelineTest, AFailureToFinishIsTold)
{
    make(false);
    pipeline_->takeScreen(picture(1s));
    finish(2s);
    EXPECT_FALSE(result_);
    movie_->completeFinish(fail(ErrorCode::permanent, "The movie couldn't be saved."));
    ASSERT_TRUE(result_);
    EXPECT_EQ(result_->error(), RecorderError::failed("The movie couldn't be saved."));
}

TEST_F(RecordingPipelineTest, PicturesThatCannotBeReadForNowAreLeftOut)
{
    make(false, std::make_unique<FailingReader>(ErrorCode::temporary));
    pipeline_->takeScreen(picture(1s));
    EXPECT_FALSE(movie_->sessionStart);
    EXPECT_THAT(failures_, IsEmpty());
}

TEST_F(RecordingPipelineTest, AFirstPictureThatCouldNotBeReadIsTriedAgain)
{
    make(false, std::make_unique<FailingReader>(ErrorCode::temporary, 2));
    pipeline_->takeScreen(picture(1s));
    pipeline_->tick(2s);
    EXPECT_FALSE(movie_->sessionStart);
    pipeline_->tick(3s);
    EXPECT_THAT(movie_->sessionStart, Optional(3s));
}

TEST_F(RecordingPipelineTest, PicturesThatCannotBeReadAnyMoreEndTheRecordingOnce)
{
    make(false, std::make_unique<FailingReader>(ErrorCode::permanent));
    pipeline_->takeScreen(picture(1s));
    pipeline_->takeScreen(picture(2s));
    EXPECT_THAT(failures_, ElementsAre("no pixels"));
}

TEST_F(RecordingPipelineTest, NothingIsTakenOnceTheEndHasBegun)
{
    make(true);
    pipeline_->takeScreen(picture(1s));
    finish(2s);
    pipeline_->takeScreen(picture(3s));
    pipeline_->takeAudio(sound(48000, 0.5F), 1s);
    pipeline_->tick(9s);
    EXPECT_THAT(movie_->pictures, ElementsAre(1s));
    EXPECT_THAT(movie_->repeats, IsEmpty());
    EXPECT_THAT(movie_->sounds, IsEmpty());
}

} // namespace
} // namespace nimbrale
