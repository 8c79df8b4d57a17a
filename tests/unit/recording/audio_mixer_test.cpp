#include "tests/fakes/log_capture.h"
#include "tests/unit/recording/audio_mixer_fixture.h"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <limits>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::SizeIs;

TEST(AudioMixerTest, NothingIsHeardBeforeTheStartIsKnown)
{
    AudioMixer mixer;
    mixer.add(sound(48000), start);
    EXPECT_FALSE(mixer.output(true).has_value());
    mixer.startTime = start;
    EXPECT_FALSE(mixer.output(true).has_value()) << "sound from before the start was kept";
    mixer.add(sound(10), start);
    EXPECT_THAT(flushed(mixer), SizeIs(20));
}

TEST(AudioMixerTest, WhatBeginsBeforeTheStartLosesItsBeginning)
{
    AudioMixer mixer = started();
    AudioBuffer buffer = sound(9600, 0.1F);
    std::fill(buffer.samples.begin() + std::ptrdiff_t{2} * 4800, buffer.samples.end(), 0.5F);
    mixer.add(buffer, start - 100ms);
    EXPECT_EQ(flushed(mixer), std::vector<float>(std::size_t{2} * 4800, 0.5F));
}

TEST(AudioMixerTest, WhatComesWhollyAfterItsTimeWasHandedOutIsIgnored)
{
    AudioMixer mixer = started();
    mixer.add(sound(48000), start);
    ASSERT_TRUE(mixer.output(false).has_value());
    mixer.add(sound(480), start);
    mixer.add(sound(480), timeOf(48000 - margin - 480));
    EXPECT_EQ(flushed(mixer), std::vector<float>(2 * margin, 0.25F));
    mixer.add(sound(1000), timeOf(47500));
    EXPECT_EQ(flushed(mixer), std::vector<float>(std::size_t{2} * 500, 0.25F)) << "only its end is new";
}

TEST(AudioMixerTest, TwoSourcesAddUpAndAreCutOffAtOne)
{
    AudioMixer mixer = started();
    mixer.add(sound(4, 0.8F), start);
    mixer.add(sound(2, 0.8F), start);
    mixer.add(sound(1, -1.9F), timeOf(3));
    mixer.add(sound(1, -5.0F), timeOf(4));
    EXPECT_THAT(flushed(mixer), ElementsAre(1.0F, 1.0F, 1.0F, 1.0F, 0.8F, 0.8F, -1.0F, -1.0F, -1.0F, -1.0F));
}

TEST(AudioMixerTest, SumsAreCutOffOnlyWhenAllHasArrived)
{
    AudioMixer mixer = started();
    mixer.add(sound(1, 0.8F), start);
    mixer.add(sound(1, 0.8F), start);
    mixer.add(sound(1, -0.8F), start);
    const std::vector<float> samples = flushed(mixer);
    ASSERT_THAT(samples, SizeIs(2));
    EXPECT_NEAR(samples.front(), 0.8, 1e-6);
}

TEST(AudioMixerTest, TheLastThreeTenthsStayUntilTheFlush)
{
    AudioMixer mixer = started();
    mixer.add(sound(20000), start);
    const auto first = mixer.output(false);
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(first->audio.frameCount(), 5600U);
    EXPECT_EQ(first->presentationTime, start);
    EXPECT_FALSE(mixer.output(false).has_value());
    const auto rest = mixer.output(true);
    ASSERT_TRUE(rest.has_value());
    EXPECT_EQ(rest->audio.frameCount(), margin);
    EXPECT_EQ(rest->presentationTime, start + nanoseconds{116'666'667});

    AudioMixer other = started();
    other.add(sound(20000), start);
    EXPECT_THAT(flushed(other), SizeIs(2 * 20000));
}

TEST(AudioMixerTest, ExactlyTheMarginIsNothingAndOneSampleMoreIsOne)
{
    AudioMixer mixer = started();
    mixer.add(sound(margin), start);
    EXPECT_FALSE(mixer.output(false).has_value());
    mixer.add(sound(1), timeOf(margin));
    const auto output = mixer.output(false);
    ASSERT_TRUE(output.has_value());
    EXPECT_EQ(output->audio.frameCount(), 1U);
}

TEST(AudioMixerTest, TheOutputIsInterleavedStereo)
{
    AudioMixer mixer = started();
    mixer.add({.channels = 2, .layout = AudioLayout::planar, .samples = {0.1F, 0.2F, 0.3F, -0.1F, -0.2F, -0.3F}},
              start);
    const auto output = mixer.output(true);
    ASSERT_TRUE(output.has_value());
    EXPECT_EQ(output->audio.sampleRate, 48000);
    EXPECT_EQ(output->audio.channels, 2);
    EXPECT_EQ(output->audio.layout, AudioLayout::interleaved);
    EXPECT_THAT(output->audio.samples, ElementsAre(0.1F, -0.1F, 0.2F, -0.2F, 0.3F, -0.3F));
}

TEST(AudioMixerTest, OneChannelGoesToBothSides)
{
    AudioMixer mixer = started();
    mixer.add({.channels = 1, .samples = {0.1F, -0.2F}}, start);
    EXPECT_THAT(flushed(mixer), ElementsAre(0.1F, 0.1F, -0.2F, -0.2F));
}

TEST(AudioMixerTest, OfMoreThanTwoChannelsTheFirstTwoCount)
{
    AudioMixer mixer = started();
    mixer.add({.channels = 3, .samples = {0.1F, 0.2F, 0.9F, 0.3F, 0.4F, 0.9F}}, start);
    EXPECT_THAT(flushed(mixer), ElementsAre(0.1F, 0.2F, 0.3F, 0.4F));
}

TEST(AudioMixerTest, BuffersThatCannotBeReadAreIgnored)
{
    AudioMixer mixer = started();
    mixer.add({.channels = 0, .samples = {0.5F, 0.5F}}, start);
    mixer.add({.channels = -2, .samples = {0.5F, 0.5F}}, start);
    mixer.add({.channels = 2, .samples = {}}, start);
    mixer.add({.channels = 2, .samples = {0.5F, 0.5F, 0.5F}}, start);
    EXPECT_FALSE(mixer.output(true).has_value());
    mixer.add({.channels = 2, .samples = {0.5F, 0.5F}}, start);
    EXPECT_THAT(flushed(mixer), SizeIs(2));
}

TEST(AudioMixerTest, WhatNobodyHeardIsSilence)
{
    AudioMixer mixer = started();
    mixer.add(sound(1), timeOf(2));
    mixer.add(sound(1, 0.5F), timeOf(4));
    EXPECT_THAT(flushed(mixer), ElementsAre(0, 0, 0, 0, 0.25F, 0.25F, 0, 0, 0.5F, 0.5F));
}

TEST(AudioMixerTest, ATimeBetweenTwoSamplesBelongsToTheEarlierOne)
{
    AudioMixer mixer = started();
    mixer.add(sound(1), timeOf(5) - 1ns);
    EXPECT_THAT(flushed(mixer), SizeIs(2 * 5));
    // Toward zero before the start: less than a sample early is on time.
    AudioMixer early = started();
    early.add(sound(3), start - 20us);
    EXPECT_THAT(flushed(early), SizeIs(2 * 3));
}

TEST(AudioMixerTest, WhatIsNoNumberIsSilence)
{
    AudioMixer mixer = started();
    mixer.add({.channels = 1, .samples = {std::numeric_limits<float>::quiet_NaN(), 0.5F}}, start);
    mixer.add({.channels = 1, .samples = {0.5F, std::numeric_limits<float>::infinity()}}, start);
    mixer.add({.channels = 1, .samples = {0.5F, -std::numeric_limits<float>::infinity()}}, start);
    EXPECT_THAT(flushed(mixer), ElementsAre(0, 0, 0, 0));
}

TEST(AudioMixerTest, ATimeFarAheadTakesNoMemoryAndIsLoggedOnce)
{
    AudioMixer mixer = started();
    mixer.add(sound(480), start);
    const LogCapture log;
    mixer.add(sound(480), timeOf(480) + AudioMixer::longestSilence + 1ms);
    mixer.add(sound(480), start + 24h * 365);
    mixer.add(sound(480), nanoseconds::max());
    mixer.add(sound(480), nanoseconds::min());
    EXPECT_THAT(log.lines(), SizeIs(1));
    EXPECT_THAT(flushed(mixer), SizeIs(2 * 480));
    // The next one with a right time is heard.
    mixer.add(sound(480), start + 10ms);
    EXPECT_THAT(flushed(mixer), SizeIs(2 * 480));
}

TEST(AudioMixerTest, ASourceThatWasSilentForMinutesIsHeardAtItsTime)
{
    AudioMixer mixer = started();
    mixer.add(sound(480), start);
    mixer.add(sound(480, 0.5F), start + 2min);
    const std::vector<float> samples = flushed(mixer);
    const std::size_t begin = std::size_t{2} * 48000 * 120;
    ASSERT_THAT(samples, SizeIs(begin + std::size_t{2} * 480));
    EXPECT_EQ(samples[begin - 1], 0);
    EXPECT_EQ(samples[begin], 0.5F);
}

TEST(AudioMixerTest, NothingDriftsOverManyPieces)
{
    AudioMixer mixer = started();
    constexpr std::int64_t pieces = 30 * 60 * 48000 / 1024;
    std::int64_t handedOut = 0;
    for (std::int64_t piece = 0; piece < pieces; ++piece) {
        mixer.add(sound(1024, 0.25F, 1), timeOf(piece * 1024));
        const auto output = mixer.output(piece + 1 == pieces);
        if (!output)
            continue;
        const double exact = static_cast<double>(handedOut) / 48000 * 1e9;
        ASSERT_NEAR(static_cast<double>((output->presentationTime - start).count()), exact, 0.6);
        ASSERT_TRUE(std::ranges::all_of(output->audio.samples, [](float sample) { return sample == 0.25F; }))
            << "a gap or an overlap in piece " << piece;
        handedOut += static_cast<std::int64_t>(output->audio.frameCount());
    }
    EXPECT_EQ(handedOut, pieces * 1024);
}

TEST(AudioMixerTest, TheRateIsNotLookedAt)
{
    AudioMixer mixer = started();
    AudioBuffer buffer = sound(480);
    buffer.sampleRate = 44'100;
    mixer.add(buffer, start);
    EXPECT_THAT(flushed(mixer), SizeIs(2 * 480));
}

} // namespace
} // namespace nimbrale
