// What a recording hears.

#include "tests/fakes/log_capture.h"
#include "tests/unit/recording/screen_recorder_fixture.h"

#include <chrono>
#include <gmock/gmock.h>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

using ScreenRecorderSoundTest = ScreenRecorderTest;

TEST_F(ScreenRecorderSoundTest, TheChosenMicrophoneIsUsed)
{
    startRecording({"/videos", {}, 30, "head"});
    EXPECT_EQ(platform_.microphones().opened.at(0)->id, "head");
    EXPECT_EQ(movie().settings.audio, MovieAudio());
    EXPECT_THAT(stream().outputs, ElementsAre(OutputType::screen));
    EXPECT_FALSE(stream().configuration.audio);
}

TEST_F(ScreenRecorderSoundTest, AMicrophoneThatIsNotThereGivesWayToTheDefaultOne)
{
    platform_.microphones().preferred = "head";
    startRecording({"/videos", {}, 30, "gone"});
    EXPECT_EQ(platform_.microphones().opened.at(0)->id, "head");
}

TEST_F(ScreenRecorderSoundTest, WithoutADefaultMicrophoneTheFirstIsUsed)
{
    startRecording({"/videos", {}, 30, ""});
    EXPECT_EQ(platform_.microphones().opened.at(0)->id, "desk");
}

TEST_F(ScreenRecorderSoundTest, WithoutAnyMicrophoneTheStartFails)
{
    platform_.microphones().list.clear();
    start({"/videos", {}, 30, ""});
    platform_.microphones().answerAccess(true);
    answerContent();
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_EQ(starts_[0].error(), RecorderError::failed("There's no microphone to record from."));
    EXPECT_THAT(platform_.movies().movies, IsEmpty());
}

TEST_F(ScreenRecorderSoundTest, AMicrophoneThatCannotBeOpenedIsNamed)
{
    platform_.microphones().openResult = fail(ErrorCode::temporary, "busy");
    const LogCapture log;
    start({"/videos", {}, 30, "head"});
    platform_.microphones().answerAccess(true);
    answerContent();
    ASSERT_EQ(starts_.size(), 1U);
    EXPECT_EQ(starts_[0].error(), RecorderError::failed("The microphone Headset can't be used."));
}

TEST_F(ScreenRecorderSoundTest, TheMicrophoneIsHeardAndClosedAtTheEnd)
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

TEST_F(ScreenRecorderSoundTest, SystemAudioComesWithTheStream)
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

} // namespace
} // namespace nimbrale
