// Random sound through the mixer comes out as a track has it that is held whole.

#include "tests/unit/recording/audio_mixer_fixture.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

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

TEST(AudioMixerTrackTest, AgreesWithATrackThatIsHeldWhole)
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

TEST(AudioMixerTrackTest, TwoSourcesThatAreLateOverlapAndPauseAgreeWithATrackThatIsHeldWhole)
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

} // namespace
} // namespace nimbrale
