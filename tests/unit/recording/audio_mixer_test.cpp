#include "recording/audio_mixer.h"

#include "tests/fakes/log_capture.h"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <limits>
#include <random>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::SizeIs;

constexpr nanoseconds start = 1000s;
constexpr std::size_t margin = 14400;

/// Sound of one level.
AudioBuffer sound(std::size_t frames, float level = 0.25F, int channels = 2)
{
    return {.channels = channels, .samples = std::vector<float>(frames * static_cast<std::size_t>(channels), level)};
}

/// When a sample of the track is, cut off to a nanosecond and then up to the next, as who counts samples tells it.
nanoseconds timeOf(std::int64_t sample)
{
    return start + nanoseconds{(sample * 1'000'000'000 + 47'999) / 48'000};
}

AudioMixer started()
{
    AudioMixer mixer;
    mixer.startTime = start;
    return mixer;
}

std::vector<float> flushed(AudioMixer& mixer)
{
    const auto output = mixer.output(true);
    return output ? output->audio.samples : std::vector<float>{};
}

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

/// A track that is held whole, which the mixer must agree with.
class PlainTrack {
public:
    void add(const AudioBuffer& audio, std::int64_t offset)
    {
        for (std::size_t frame = 0; frame < audio.frameCount(); ++frame) {
            const std::int64_t place = offset + static_cast<std::int64_t>(frame);
            if (place < handedOut_)
                continue;
            end_ = std::max(end_, static_cast<std::size_t>(place) + 1);
            sums_.resize(std::max(sums_.size(), 2 * end_));
            sums_[2 * static_cast<std::size_t>(place)] += audio.sample(frame, 0);
            sums_[2 * static_cast<std::size_t>(place) + 1] += audio.sample(frame, std::min(audio.channels - 1, 1));
        }
    }
    /// Whether all before that place was handed out.
    [[nodiscard]] bool isWhollyHandedOut(std::int64_t end) const { return end <= handedOut_; }
    std::vector<float> take(bool flush)
    {
        const auto limit = static_cast<std::int64_t>(end_) - (flush ? 0 : static_cast<std::int64_t>(margin));
        std::vector<float> samples;
        for (; handedOut_ < limit; ++handedOut_) {
            for (const std::size_t side : {0U, 1U})
                samples.push_back(
                    std::min(1.0F, std::max(-1.0F, sums_[2 * static_cast<std::size_t>(handedOut_) + side])));
        }
        return samples;
    }

private:
    std::vector<float> sums_;
    std::size_t end_ = 0;
    std::int64_t handedOut_ = 0;
};

AudioBuffer randomSound(std::mt19937& random)
{
    std::uniform_real_distribution<float> level(-1.2F, 1.2F);
    AudioBuffer buffer;
    buffer.channels = std::uniform_int_distribution(1, 4)(random);
    buffer.layout = random() % 2 == 0 ? AudioLayout::planar : AudioLayout::interleaved;
    buffer.samples.resize(std::uniform_int_distribution<std::size_t>(1, 3000)(random) *
                          static_cast<std::size_t>(buffer.channels));
    std::ranges::generate(buffer.samples, [&] { return level(random); });
    return buffer;
}

TEST(AudioMixerTest, AgreesWithATrackThatIsHeldWhole)
{
    for (unsigned seed = 1; seed <= 40; ++seed) {
        std::mt19937 random(seed);
        AudioMixer mixer = started();
        PlainTrack track;
        std::int64_t now = 0;
        for (int step = 0; step < 120; ++step) {
            now += std::uniform_int_distribution(0, 2500)(random);
            // Early and late pieces, some of them from before the start.
            const std::int64_t offset = now + std::uniform_int_distribution(-30000, 8000)(random);
            const AudioBuffer buffer = randomSound(random);
            // Anywhere within the sample, which before the start counts from its end.
            const nanoseconds within{std::uniform_int_distribution(0, 20'000)(random)};
            mixer.add(buffer, offset < 0 ? start - (timeOf(-offset) - start) - within : timeOf(offset) + within);
            track.add(buffer, offset);
            if (random() % 3 == 0) {
                const auto output = mixer.output(false);
                ASSERT_EQ(output ? output->audio.samples : std::vector<float>{}, track.take(false)) << "seed " << seed;
            }
        }
        ASSERT_EQ(flushed(mixer), track.take(true)) << "seed " << seed;
    }
}

/// A device that hears random sound: its pieces may overlap, leave gaps, and come late.
class RandomSource {
public:
    RandomSource(int channels, int sampleRate, unsigned seed)
        : channels_(channels), sampleRate_(sampleRate), random_(seed)
    {}

    struct Piece {
        AudioBuffer audio;
        std::int64_t offset = 0;
        std::int64_t arrival = 0; ///< in samples, as the offset
    };
    Piece next()
    {
        Piece piece{randomSound(random_), position_, 0};
        piece.audio.channels = channels_;
        piece.audio.sampleRate = sampleRate_;
        piece.audio.samples.resize(piece.audio.samples.size() / static_cast<std::size_t>(channels_) *
                                   static_cast<std::size_t>(channels_));
        const auto length = static_cast<std::int64_t>(piece.audio.frameCount());
        // Half of the pieces follow the one before.
        position_ += length;
        const unsigned kind = random_() % 8;
        if (kind == 0)
            position_ += std::uniform_int_distribution(1, 40'000)(random_);
        else if (kind < 4)
            position_ -= std::uniform_int_distribution<std::int64_t>(0, length)(random_);
        // Most come within the margin, and some far later.
        piece.arrival = piece.offset + length + std::uniform_int_distribution(0, kind == 5 ? 40'000 : 3000)(random_);
        return piece;
    }

private:
    int channels_;
    int sampleRate_;
    std::mt19937 random_;
    std::int64_t position_ = -5000;
};

TEST(AudioMixerTest, TwoSourcesThatAreLateOverlapAndPauseAgreeWithATrackThatIsHeldWhole)
{
    int late = 0;
    for (unsigned seed = 1; seed <= 30; ++seed) {
        // What the rate is said to be makes no difference.
        RandomSource microphone(seed % 2 == 0 ? 1 : 4, 44'100, seed);
        RandomSource computer(2, 48'000, 1000 + seed);
        std::vector<RandomSource::Piece> pieces;
        for (int piece = 0; piece < 80; ++piece) {
            for (RandomSource* const source : {&microphone, &computer}) {
                pieces.push_back(source->next());
                if (pieces.back().audio.samples.empty())
                    pieces.pop_back();
            }
        }
        std::ranges::stable_sort(pieces, {}, &RandomSource::Piece::arrival);
        AudioMixer mixer = started();
        PlainTrack track;
        nanoseconds end = start;
        for (const RandomSource::Piece& piece : pieces) {
            const std::int64_t offset = piece.offset;
            mixer.add(piece.audio, offset < 0 ? start - (timeOf(-offset) - start) : timeOf(offset));
            track.add(piece.audio, offset);
            late += track.isWhollyHandedOut(offset + static_cast<std::int64_t>(piece.audio.frameCount())) ? 1 : 0;
            const auto output = mixer.output(false);
            ASSERT_EQ(output ? output->audio.samples : std::vector<float>{}, track.take(false)) << "seed " << seed;
            if (!output)
                continue;
            EXPECT_LE(std::chrono::abs(output->presentationTime - end), 1ns) << "it begins where the last one ended";
            end = output->presentationTime +
                  nanoseconds{static_cast<std::int64_t>(output->audio.frameCount()) * 1'000'000'000 / 48'000};
        }
        ASSERT_EQ(flushed(mixer), track.take(true)) << "seed " << seed;
    }
    EXPECT_GT(late, 30) << "nothing came too late";
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
