// The sound of a movie: each sample where its time says.

#include "tests/unit/platform/ffmpeg/movie_writer_fixture.h"

#include <cmath>
#include <limits>
#include <numbers>

namespace nimbrale::ffmpeg {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

constexpr int rate = 48000;

/// A tone of 1 kHz on the left and 470 Hz on the right, as it is from `first` on.
AudioBuffer tone(std::int64_t first, int count)
{
    AudioBuffer audio{.sampleRate = rate, .channels = 2, .layout = AudioLayout::interleaved, .samples = {}};
    for (std::int64_t sample = first; sample < first + count; ++sample) {
        const double angle = 2 * std::numbers::pi * static_cast<double>(sample) / rate;
        audio.samples.push_back(static_cast<float>(0.5 * std::sin(1000 * angle)));
        audio.samples.push_back(static_cast<float>(0.5 * std::sin(470 * angle)));
    }
    return audio;
}

nanoseconds timeOf(std::int64_t sample)
{
    return nanoseconds(sample * std::nano::den / rate);
}

/// The mean of the squares, from one time to another.
double energy(const std::vector<float>& samples, nanoseconds from, nanoseconds to)
{
    const auto first = static_cast<std::size_t>(from.count() * rate / std::nano::den);
    const auto last = static_cast<std::size_t>(to.count() * rate / std::nano::den);
    double sum = 0;
    for (std::size_t sample = first; sample < last; ++sample)
        sum += static_cast<double>(samples.at(sample)) * samples.at(sample);
    return sum / static_cast<double>(last - first);
}

/// By how many samples the tone of that frequency is late, by its phase; whole periods are not seen.
double latenessOf(const std::vector<float>& samples, double frequency, std::size_t first, std::size_t count)
{
    double sine = 0;
    double cosine = 0;
    for (std::size_t sample = first; sample < first + count; ++sample) {
        const double angle = 2 * std::numbers::pi * frequency * static_cast<double>(sample) / rate;
        sine += samples.at(sample) * std::sin(angle);
        cosine += samples.at(sample) * std::cos(angle);
    }
    return std::atan2(-cosine, sine) / (2 * std::numbers::pi * frequency) * rate;
}

class MovieSoundTest : public MovieWriterTest {
protected:
    Screen screen{64, 48};

    [[nodiscard]] std::unique_ptr<MovieWriter> beginWithSound()
    {
        MovieSettings settings = settingsFor(64, 48);
        settings.audio = MovieAudio{};
        return begin(settings);
    }
    /// A picture a second, up to `end`.
    void appendPictures(MovieWriter& writer, nanoseconds from, nanoseconds end)
    {
        for (nanoseconds time = from; time < end; time += 1s) {
            screen.fillAll({static_cast<std::uint8_t>(time / 1s * 20), 0, 0});
            append(writer, screen, time);
        }
    }
    static void appendTone(MovieWriter& writer, nanoseconds from, nanoseconds to, int pieceLength)
    {
        const std::int64_t end = to.count() * rate / std::nano::den;
        for (std::int64_t sample = from.count() * rate / std::nano::den; sample < end; sample += pieceLength) {
            const auto count = static_cast<int>(std::min<std::int64_t>(pieceLength, end - sample));
            writer.appendAudio(tone(sample, count), start + timeOf(sample));
        }
    }
    PlayedMovie finished(MovieWriter& writer, nanoseconds end)
    {
        const auto result = finish(writer, end);
        if (!result)
            throw std::runtime_error(result.error().message);
        if (const auto failure = writer.failure())
            throw std::runtime_error(failure->message);
        return PlayedMovie(*result);
    }
};

TEST_F(MovieSoundTest, IsStereoAacOfTheRateAskedFor)
{
    const auto writer = beginWithSound();
    appendPictures(*writer, 0s, 2s);
    appendTone(*writer, 0s, 2s, 480);
    const PlayedMovie decoded = finished(*writer, 2s);
    ASSERT_TRUE(decoded.audio());
    EXPECT_EQ(decoded.audio()->codec_id, AV_CODEC_ID_AAC);
    EXPECT_EQ(decoded.audio()->sample_rate, rate);
    EXPECT_EQ(decoded.audio()->ch_layout.nb_channels, 2);
    EXPECT_NEAR(decoded.videoDuration().count(), 2, 0.001);
    EXPECT_NEAR(decoded.audioDuration().count(), 2, 0.05);
}

TEST_F(MovieSoundTest, ToneIsDecodedAtItsSampleWhateverThePieces)
{
    for (const int pieceLength : {480, 1, 1024, 333, 40000}) {
        const auto writer = beginWithSound();
        appendPictures(*writer, 0s, 1s);
        // The edges, and two tones without a common period, show a shift by whole periods as well.
        appendTone(*writer, 500ms, 900ms, pieceLength);
        const PlayedMovie decoded = finished(*writer, 1s);
        EXPECT_LT(energy(decoded.left(), 100ms, 495ms), 1e-5) << pieceLength;
        EXPECT_NEAR(energy(decoded.left(), 505ms, 895ms), 0.125, 0.01) << pieceLength;
        EXPECT_LT(energy(decoded.left(), 905ms, 1s), 1e-5) << pieceLength;
        EXPECT_NEAR(latenessOf(decoded.left(), 1000, 26400, 9600), 0, 0.1) << pieceLength;
        EXPECT_NEAR(latenessOf(decoded.right(), 470, 26400, 9600), 0, 0.1) << pieceLength;
    }
}

TEST_F(MovieSoundTest, GapIsSilenceAndWhatFollowsIsInItsPlace)
{
    const auto writer = beginWithSound();
    appendPictures(*writer, 0s, 2s);
    appendTone(*writer, 0s, 600ms, 480);
    appendTone(*writer, 1400ms, 2s, 480);
    const PlayedMovie decoded = finished(*writer, 2s);
    EXPECT_NEAR(energy(decoded.left(), 100ms, 595ms), 0.125, 0.01);
    EXPECT_LT(energy(decoded.left(), 605ms, 1395ms), 1e-4);
    EXPECT_NEAR(energy(decoded.left(), 1405ms, 1995ms), 0.125, 0.01);
    EXPECT_NEAR(latenessOf(decoded.left(), 1000, 72000, 9600), 0, 0.1);
}

TEST_F(MovieSoundTest, OverlapIsCut)
{
    const auto writer = beginWithSound();
    appendPictures(*writer, 0s, 1s);
    appendTone(*writer, 0s, 500ms, 480);
    // Louder than the tone, and for the most part too late.
    AudioBuffer loud = tone(0, 24000);
    std::ranges::fill(loud.samples, 0.9F);
    writer->appendAudio(loud, start + 50ms);
    appendTone(*writer, 550ms, 1s, 480);
    const PlayedMovie decoded = finished(*writer, 1s);
    EXPECT_NEAR(energy(decoded.left(), 100ms, 490ms), 0.125, 0.01);
    EXPECT_NEAR(energy(decoded.left(), 505ms, 545ms), 0.81, 0.1);
    EXPECT_NEAR(energy(decoded.left(), 560ms, 995ms), 0.125, 0.01);
    EXPECT_NEAR(latenessOf(decoded.left(), 1000, 28800, 9600), 0, 0.1);
}

TEST_F(MovieSoundTest, SoundBeforeTheStartIsLeftOut)
{
    const auto writer = beginWithSound();
    appendPictures(*writer, 0s, 1s);
    appendTone(*writer, -500ms, 1s, 480);
    const PlayedMovie decoded = finished(*writer, 1s);
    EXPECT_NEAR(decoded.audioDuration().count(), 1, 0.05);
    EXPECT_NEAR(latenessOf(decoded.left(), 1000, 4800, 9600), 0, 0.1);
}

TEST_F(MovieSoundTest, WhatIsNoSampleIsSilenceAndWhatIsTooLoudIsClipped)
{
    const auto writer = beginWithSound();
    appendPictures(*writer, 0s, 1s);
    AudioBuffer audio = tone(0, rate);
    for (std::size_t sample = 0; sample < audio.samples.size(); sample += 2) {
        audio.samples[sample] = std::numeric_limits<float>::quiet_NaN();
        audio.samples[sample + 1] = sample % 96 < 48 ? 1e30F : -std::numeric_limits<float>::infinity();
    }
    writer->appendAudio(audio, start);
    const PlayedMovie decoded = finished(*writer, 1s);
    EXPECT_LT(energy(decoded.left(), 100ms, 900ms), 1e-3);
    EXPECT_NEAR(energy(decoded.right(), 100ms, 900ms), 0.5, 0.1);
}

TEST_F(MovieSoundTest, BothTracksEndTogetherWhateverTheSoundDid)
{
    for (const nanoseconds soundEnd : {0ms, 5ms, 1500ms, 3000ms, 3500ms}) {
        const auto writer = beginWithSound();
        appendPictures(*writer, 0s, 3s);
        appendTone(*writer, 0s, soundEnd, 480);
        const PlayedMovie decoded = finished(*writer, 3s);
        ASSERT_TRUE(decoded.audio());
        EXPECT_NEAR(decoded.videoDuration().count(), 3, 0.001) << soundEnd / 1ms;
        EXPECT_NEAR(decoded.audioDuration().count(), soundEnd > 3s ? 3.5 : 3, 0.05) << soundEnd / 1ms;
        EXPECT_NEAR(static_cast<double>(decoded.left().size()), decoded.audioDuration().count() * rate, 1100);
    }
}

TEST_F(MovieSoundTest, ShortestMovieHasBothTracks)
{
    const auto writer = beginWithSound();
    append(*writer, screen, 0s);
    const PlayedMovie decoded = finished(*writer, 1ms);
    ASSERT_TRUE(decoded.audio());
    EXPECT_LT(decoded.audioDuration().count(), 0.05);
    EXPECT_EQ(decoded.pictures().size(), 1U);
}

TEST_F(MovieSoundTest, StalledSoundHoldsUpNoPicture)
{
    const auto writer = beginWithSound();
    appendTone(*writer, 0s, 500ms, 480);
    appendPictures(*writer, 0s, 4s);
    // All but the last, of which nobody knows yet how long it is shown.
    EXPECT_TRUE(piecesWith(3));
    // What comes late after all is not lost.
    appendTone(*writer, 500ms, 4s, 480);
    const PlayedMovie decoded = finished(*writer, 4s);
    EXPECT_NEAR(energy(decoded.left(), 100ms, 3900ms), 0.125, 0.005);
    EXPECT_NEAR(latenessOf(decoded.left(), 1000, 144000, 9600), 0, 0.1);
}

TEST_F(MovieSoundTest, LongSilenceDoesNotHoldUpPictures)
{
    const auto writer = beginWithSound();
    append(*writer, screen, 0s);
    // Ten minutes are missing before it.
    writer->appendAudio(tone(0, 480), start + 10min);
    screen.fillAll({0, 255, 0});
    append(*writer, screen, 1s);
    screen.fillAll({0, 0, 255});
    append(*writer, screen, 2s);
    const auto pieces = piecesWith(2);
    ASSERT_TRUE(pieces);
    EXPECT_LT(pieces->left().size(), std::size_t{300} * rate);
    const PlayedMovie decoded = finished(*writer, 10min + 1s);
    EXPECT_NEAR(decoded.audioDuration().count(), 601, 0.05);
}

} // namespace
} // namespace nimbrale::ffmpeg
