// Ten minutes of flashes and beeps through the recording and into a movie: what was at one time stays at one time,
// whatever the devices' clocks do.

#include "platform/pipewire/sound_timeline.h"
#include "platform/pulseaudio/sound_clock.h"
#include "tests/support/tone.h"
#include "tests/unit/platform/ffmpeg/played_movie.h"
#include "tests/unit/recording/long_recording.h"

#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <map>
#include <numbers>
#include <random>
#include <vector>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

constexpr nanoseconds start = 123'456s + 789ns;
constexpr int minutes = 10;
constexpr nanoseconds length = std::chrono::minutes(minutes);
constexpr nanoseconds beepLength = 100ms;
/// When, within each second, the computer's beep begins; the microphone's does with the second.
constexpr nanoseconds soundsAt = 300ms;
constexpr std::size_t pieceLength = 480;

/// When both devices sleep.
constexpr nanoseconds sleepBegin = 100'700ms;
constexpr nanoseconds sleepEnd = 107'450ms;

double secondsOf(nanoseconds duration)
{
    return std::chrono::duration<double>(duration).count();
}

/// A device whose clock is off. Each sample is what is to be heard at its true time; a service measures when each
/// piece was heard, badly, and `Clock` gives it the time that is recorded.
template <typename Clock>
class DriftingDevice {
public:
    struct Options {
        int partsPerMillion = 0;
        /// By how much a measured time is off at most.
        nanoseconds wavering{};
        /// How many of its pieces are lost.
        double lostPart = 0;
        /// When, within each second, its beeps begin.
        nanoseconds beepsAt{};
        int channels = 1;
        unsigned seed = 1;
    };

    explicit DriftingDevice(const Options& options) : options_(options), random_(options.seed) {}

    /// Records what was heard up to `now`, since the start.
    void hearUntil(nanoseconds now, LongRecording& recording)
    {
        for (; timeOf(samples_ + pieceLength) <= now; samples_ += pieceLength) {
            const nanoseconds begin = timeOf(samples_);
            if (begin >= sleepBegin && begin < sleepEnd)
                continue;
            if (isLost(begin)) {
                // This service tells of it; otherwise the times have to.
                if constexpr (requires { clock_.leaveOut(pieceLength); })
                    clock_.leaveOut(pieceLength);
                continue;
            }
            const nanoseconds off{std::uniform_int_distribution<std::int64_t>(-options_.wavering.count(),
                                                                              options_.wavering.count())(random_)};
            if (const auto place = clock_.place(start + begin + off, pieceLength))
                recording.hear(piece(place->skipped), place->time);
        }
    }

private:
    /// Nothing of a beep is, by which the times are measured.
    [[nodiscard]] bool isLost(nanoseconds begin)
    {
        const nanoseconds within = (begin - options_.beepsAt + 1s) % 1s;
        return std::bernoulli_distribution(options_.lostPart)(random_) && within > 2 * beepLength && within < 900ms;
    }
    [[nodiscard]] nanoseconds timeOf(std::size_t sample) const
    {
        const double rate = 48000 * (1 + options_.partsPerMillion * 1e-6);
        return nanoseconds{std::llround(static_cast<double>(sample) / rate * 1e9)};
    }
    [[nodiscard]] AudioBuffer piece(std::size_t skipped) const
    {
        AudioBuffer audio;
        audio.channels = options_.channels;
        audio.samples.reserve(pieceLength * static_cast<std::size_t>(options_.channels));
        for (std::size_t sample = samples_ + skipped; sample < samples_ + pieceLength; ++sample) {
            const nanoseconds within = (timeOf(sample) - options_.beepsAt + 1s) % 1s;
            const double level =
                within < beepLength ? 0.4 * std::sin(2 * std::numbers::pi * 1000 * secondsOf(within)) : 0;
            audio.samples.insert(audio.samples.end(), static_cast<std::size_t>(options_.channels),
                                 static_cast<float>(level));
        }
        return audio;
    }

    const Options options_;
    std::mt19937 random_;
    Clock clock_;
    std::size_t samples_ = 0;
};

/// A flash at each whole second, for as long as a beep; a picture comes at each change, and at uneven times between.
void showUntil(nanoseconds now, nanoseconds& shown, std::mt19937& random, LongRecording& recording)
{
    const nanoseconds usual = 1'000'000'000ns / LongRecording::framesPerSecond;
    while (shown < now) {
        const nanoseconds within = shown % 1s;
        recording.show(within < beepLength, start + shown);
        const nanoseconds change = within < beepLength ? beepLength - within : 1s - within;
        const nanoseconds wavering{std::uniform_int_distribution<std::int64_t>(-10'000'000, 10'000'000)(random)};
        shown += std::min(change, usual + wavering);
    }
}

/// By how much each beep is late against the flash of its second, in the movie; the key is the second.
struct Offsets {
    std::map<std::int64_t, double> atFlashes;
    std::map<std::int64_t, double> betweenFlashes;
};

class RecordingSyncTest : public testing::Test {
protected:
    template <typename Clock>
    Offsets record(nanoseconds wavering)
    {
        LongRecording recording(folder.filePath("Movie.mov").toStdString());
        using Device = DriftingDevice<Clock>;
        Device microphone({.partsPerMillion = 200, .wavering = wavering, .lostPart = 0.001, .seed = 1});
        Device computer({.partsPerMillion = -200,
                         .wavering = wavering,
                         .lostPart = 0.001,
                         .beepsAt = soundsAt,
                         .channels = 2,
                         .seed = 2});
        std::mt19937 random(3); // NOLINT(bugprone-random-generator-seed): a failure must come again.
        nanoseconds shown{};
        for (nanoseconds now = 50ms; now <= length; now += 50ms) {
            showUntil(now, shown, random, recording);
            computer.hearUntil(now - 20ms, recording);
            microphone.hearUntil(now, recording);
            if (now % 500ms == 0s)
                recording.tick(start + now);
        }
        return offsetsOf(ffmpeg::PlayedMovie(recording.finish(start + length)));
    }
    /// Beeps and flashes, each against its own second: the flashes must be exact.
    static Offsets offsetsOf(const ffmpeg::PlayedMovie& movie)
    {
        Offsets offsets;
        bool isBright = false;
        for (const ffmpeg::PlayedPicture& picture : movie.pictures()) {
            const bool wasBright = std::exchange(isBright, picture.lumaAt(32, 24) > 128);
            if (wasBright || !isBright)
                continue;
            const auto second = std::chrono::round<std::chrono::seconds>(picture.time).count();
            EXPECT_NEAR(secondsOf(picture.time), static_cast<double>(second), 1.0 / 90'000) << "a flash";
            if (second == 0)
                continue; // The encoder of the sound begins here.
            if (const auto beep = beepAround(movie.left(), static_cast<double>(second), secondsOf(beepLength)))
                offsets.atFlashes[second] = *beep - secondsOf(picture.time);
            if (const auto beep =
                    beepAround(movie.left(), static_cast<double>(second) + secondsOf(soundsAt), secondsOf(beepLength)))
                offsets.betweenFlashes[second] = *beep - secondsOf(soundsAt) - secondsOf(picture.time);
        }
        EXPECT_NEAR(movie.videoDuration().count(), secondsOf(length), 0.001);
        EXPECT_NEAR(movie.audioDuration().count(), secondsOf(length), 0.05);
        return offsets;
    }
    void expectTogether(const std::map<std::int64_t, double>& offsets, double atMost, const std::string& whose)
    {
        EXPECT_EQ(offsets.size(), static_cast<std::size_t>(minutes * 60 - 1 - 7)) << whose << ": all but those asleep";
        EXPECT_EQ(offsets.count(104), 0U) << whose << ": heard while asleep";
        double worst = 0;
        double sumAtFirst = 0;
        double sumAtLast = 0;
        for (const auto& [second, offset] : offsets) {
            EXPECT_LT(std::abs(offset), atMost) << whose << " at " << second;
            worst = std::max(worst, std::abs(offset));
            if (second < 60)
                sumAtFirst += offset;
            else if (second >= minutes * 60 - 60)
                sumAtLast += offset;
        }
        RecordProperty("worst " + whose, std::to_string(worst));
        EXPECT_LT(std::abs(sumAtLast - sumAtFirst) / 60, atMost / 2) << whose << " drifts";
    }

    QTemporaryDir folder;
};

TEST_F(RecordingSyncTest, TenMinutesOfPipewiresSoundStayWithThePicture)
{
    const Offsets offsets = record<pipewire::SoundTimeline>(500us);
    expectTogether(offsets.atFlashes, 0.003, "microphone");
    expectTogether(offsets.betweenFlashes, 0.003, "computer");
}

TEST_F(RecordingSyncTest, TenMinutesOfPulseaudiosSoundStayWithThePicture)
{
    const Offsets offsets = record<pulseaudio::SoundClock>(20ms);
    expectTogether(offsets.atFlashes, 0.010, "microphone");
    expectTogether(offsets.betweenFlashes, 0.010, "computer");
}

} // namespace
} // namespace nimbrale::test
