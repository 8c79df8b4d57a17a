// Recordings with the microphone and the computer's sound.

#include "tests/meeting/recording_journey.h"
#include "tests/support/private_pipewire.h"
#include "tests/support/tone.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <gmock/gmock.h>
#include <span>
#include <thread>

namespace nimbrale::test {
namespace {

using testing::SizeIs;

constexpr double voice = 440;
constexpr double music = 660;
constexpr double level = 0.4;

class RecordingSoundTest : public RecordingJourney {
protected:
    void SetUp() override
    {
        if (const std::string missing = PrivatePipewire::missing(); !missing.empty())
            skipTest(missing);
        std::string reason;
        pipewire = PrivatePipewire::start(reason);
        if (!pipewire)
            failTest(reason);
        prepare();
    }
    [[nodiscard]] std::unique_ptr<VirtualSound> plugIn(const VirtualSound::Options& options)
    {
        std::string reason;
        auto sound = VirtualSound::start(*pipewire, options, reason);
        if (!sound)
            failTest(reason);
        return sound;
    }
    void plugInLoudspeaker() { loudspeaker = plugIn({.kind = "sink", .id = "loud", .name = "Loudspeaker"}); }
    [[nodiscard]] std::unique_ptr<VirtualSound> microphoneOf(double frequency)
    {
        return plugIn({.kind = "microphone",
                       .id = "desk",
                       .name = "Desk microphone",
                       .more = {"--tone", std::to_string(frequency), "--channels", "1"}});
    }
    [[nodiscard]] std::unique_ptr<VirtualSound> playerOf(const std::string& what, double frequency)
    {
        return plugIn({.kind = "player",
                       .id = "player",
                       .name = "Player",
                       .more = {"--target", "loud", what, std::to_string(frequency)}});
    }
    void startWith(const std::map<std::string, std::string>& sounds)
    {
        start(sounds, {{"PIPEWIRE_RUNTIME_DIR", pipewire->runtimeFolder()}});
    }

    /// How loud a tone is in the movie, from a second on for so long.
    [[nodiscard]] static double levelAt(const std::vector<float>& samples, double frequency, double from,
                                        double length = 0.5)
    {
        const auto begin = static_cast<std::size_t>(from * 48000);
        const auto count = static_cast<std::size_t>(length * 48000);
        if (begin + count > samples.size())
            return 0;
        return levelOfTone(std::span(samples).subspan(begin, count), frequency);
    }
    /// When each sound after a silence begins, in seconds.
    [[nodiscard]] static std::vector<double> onsets(const std::vector<float>& samples)
    {
        constexpr std::size_t silence = 24000;
        std::vector<double> found;
        std::size_t quiet = 0;
        for (std::size_t index = 0; index < samples.size(); ++index) {
            if (std::abs(samples[index]) < 0.05F) {
                ++quiet;
                continue;
            }
            if (quiet > silence)
                found.push_back(static_cast<double>(index) / 48000);
            quiet = 0;
        }
        return found;
    }

    std::unique_ptr<PrivatePipewire> pipewire;
    std::unique_ptr<VirtualSound> loudspeaker;
};

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

TEST_F(RecordingSoundTest, AFlashAndABeepAtOneTimeAreAtOneTimeInTheMovie)
{
    plugInLoudspeaker();
    const auto player = playerOf("--beep", 1000);
    scene->add("flash", {.geometry = {601, 301, 80, 80}, .seed = 0, .color = Qt::black});
    startWith({{"recordSystemAudio", "true"}, {"settingsFramerate", "120"}});
    pressRecord();
    ASSERT_TRUE(isRecording());
    // The beeps begin with each whole second of the monotonic clock.
    const auto nextSecond = std::chrono::ceil<std::chrono::seconds>(std::chrono::steady_clock::now());
    constexpr int flashes = 6;
    for (int second = 1; second <= flashes; ++second) {
        std::this_thread::sleep_until(nextSecond + std::chrono::seconds(second));
        scene->fill("flash", {0, 0, 80, 80}, Qt::white);
        std::this_thread::sleep_for(Milliseconds{100});
        scene->fill("flash", {0, 0, 80, 80}, Qt::black);
    }
    pressRecord();
    ASSERT_TRUE(isSaved()) << application->process().output();

    const MovieFile saved = movie();
    const std::vector<double> beeps = onsets(saved.samples(0));
    const QPoint middle = QPoint(640, 340) - region.topLeft();
    std::vector<double> offsets;
    bool isBright = false;
    for (const MovieFile::Picture& picture : saved.video()->pictures) {
        const bool wasBright = std::exchange(isBright, qGray(saved.pictureAt(picture.time).pixel(middle)) > 128);
        if (wasBright || !isBright)
            continue;
        const auto nearest =
            std::ranges::min_element(beeps, {}, [&](double beep) { return std::abs(beep - picture.time); });
        ASSERT_NE(nearest, beeps.end());
        offsets.push_back(picture.time - *nearest);
    }
    ASSERT_THAT(offsets, SizeIs(flashes));
    // A flash is drawn a little after its second, and captured at the next of the display's ticks.
    std::ranges::sort(offsets);
    EXPECT_NEAR(offsets[flashes / 2], 0, 0.020);
    EXPECT_LT(offsets.back() - offsets.front(), 0.030);
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
