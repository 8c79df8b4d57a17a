// Recordings with the microphone and the computer's sound.

#include "tests/meeting/recording_sound_journey.h"

#include <chrono>
#include <gmock/gmock.h>
#include <set>

namespace nimbrale::test {
namespace {

using testing::ElementsAre;

constexpr double voice = 440;
constexpr double music = 660;
constexpr double level = 0.4;

class RecordingSoundTest : public RecordingSoundJourney {};

TEST_F(RecordingSoundTest, MicrophoneAndTheComputersSoundAreMixed)
{
    plugInLoudspeaker();
    const auto microphone = microphoneOf(voice);
    const auto player = playerOf("--tone", music);
    startWith({{"recordMicrophone", "true"}, {"recordSystemAudio", "true"}});
    record(Milliseconds{4000});
    EXPECT_TRUE(microphone->waitFor("unheard")) << "the microphone is closed at the end";
    ASSERT_TRUE(isSaved()) << application->process().output();
    const MovieFile saved = movie();
    EXPECT_EQ(saved.problems(), "");
    ASSERT_TRUE(saved.video() && saved.audio());
    EXPECT_EQ(saved.audio()->codec, "aac");
    EXPECT_EQ(saved.audio()->sampleRate, 48000);
    EXPECT_EQ(saved.audio()->channels, 2);
    EXPECT_NEAR(saved.audio()->start, 0, 0.001);
    EXPECT_NEAR(saved.audio()->start + saved.audio()->duration, saved.video()->duration, 0.05);
    for (const int channel : {0, 1}) {
        const std::vector<float> samples = saved.samples(channel);
        for (const double from : {1.0, 2.0, 3.0}) {
            EXPECT_NEAR(levelAt(samples, voice, from), level, 0.1) << channel << " at " << from;
            EXPECT_NEAR(levelAt(samples, music, from), level, 0.1) << channel << " at " << from;
        }
        EXPECT_LT(levelAt(samples, 1000, 1), 0.02) << "the control: a tone that nobody plays";
    }
}

TEST_F(RecordingSoundTest, WhatIsSwitchedOffIsNotInTheMovie)
{
    plugInLoudspeaker();
    const auto microphone = microphoneOf(voice);
    const auto player = playerOf("--tone", music);
    startWith({{"recordMicrophone", "false"}, {"recordSystemAudio", "true"}});
    record(Milliseconds{2500});
    ASSERT_TRUE(isSaved()) << application->process().output();
    const std::vector<float> samples = movie().samples(0);
    EXPECT_NEAR(levelAt(samples, music, 1), level, 0.1);
    EXPECT_LT(levelAt(samples, voice, 1), 0.02);
}

TEST_F(RecordingSoundTest, TheApplicationPlaysNothingThatWouldHaveToBeLeftOut)
{
    plugInLoudspeaker();
    const auto microphone = microphoneOf(voice);
    const auto player = playerOf("--tone", music);
    startWith({{"recordMicrophone", "true"}, {"recordSystemAudio", "true"}});
    std::string reason;
    std::set<std::string> played;
    const auto look = [&] {
        const auto players = pipewire->players(reason);
        if (!players)
            failTest(reason);
        played.insert(players->begin(), players->end());
    };
    look();
    pressRecord();
    ASSERT_TRUE(isRecording()) << application->process().output();
    for (const auto end = std::chrono::steady_clock::now() + Milliseconds{3000};
         std::chrono::steady_clock::now() < end;)
        look();
    pressRecord();
    ASSERT_TRUE(isSaved()) << application->process().output();
    look();
    EXPECT_THAT(played, ElementsAre("player")) << "what plays is seen, and is not the application";
}

TEST_F(RecordingSoundTest, AMicrophoneThatIsUnpluggedAndComesBackIsSilentMeanwhile)
{
    const auto microphone = microphoneOf(voice);
    startWith({{"recordMicrophone", "true"}});
    pressRecord();
    ASSERT_TRUE(isRecording()) << application->process().output();
    sleepFor(Milliseconds{2000});
    microphone->tell("unplug");
    ASSERT_TRUE(microphone->waitFor("unplugged"));
    sleepFor(Milliseconds{3000});
    microphone->tell("plug");
    ASSERT_TRUE(microphone->waitFor("plugged"));
    sleepFor(Milliseconds{3000});
    pressRecord();
    ASSERT_TRUE(isSaved()) << application->process().output();
    const MovieFile saved = movie();
    EXPECT_EQ(saved.problems(), "");
    const std::vector<float> samples = saved.samples(0);
    EXPECT_NEAR(levelAt(samples, voice, 1), level, 0.1);
    EXPECT_LT(levelAt(samples, voice, 3.5), 0.02);
    EXPECT_NEAR(levelAt(samples, voice, 7.2), level, 0.1);
    EXPECT_NEAR(saved.audio()->duration, saved.video()->duration, 0.05);
}

TEST_F(RecordingSoundTest, PipewireThatEndsLeavesThePictureAndItsWholeLength)
{
    const auto microphone = microphoneOf(voice);
    startWith({{"recordMicrophone", "true"}});
    pressRecord();
    ASSERT_TRUE(isRecording()) << application->process().output();
    sleepFor(Milliseconds{2000});
    pipewire->crash();
    sleepFor(Milliseconds{4000});
    pressRecord();
    ASSERT_TRUE(isSaved()) << application->process().output();
    const MovieFile saved = movie();
    EXPECT_EQ(saved.problems(), "");
    EXPECT_NEAR(saved.video()->duration, 6.2, 0.6);
    EXPECT_NEAR(saved.audio()->duration, saved.video()->duration, 0.05);
    EXPECT_NEAR(levelAt(saved.samples(0), voice, 1), level, 0.1);
    EXPECT_TRUE(showsAreaOf(saved.pictureAt(5), region));
}

TEST_F(RecordingSoundTest, WithoutAMicrophoneTheUserIsTold)
{
    startWith({{"recordMicrophone", "true"}});
    pressRecord();
    EXPECT_TRUE(dismissAlert());
    EXPECT_TRUE(otherFilesIn(videos).empty());
}

} // namespace
} // namespace nimbrale::test
