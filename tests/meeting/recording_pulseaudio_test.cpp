// The real application recording sound where PulseAudio is the sound server.

#include "tests/meeting/recording_journey.h"
#include "tests/support/private_pulseaudio.h"
#include "tests/support/tone.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <gmock/gmock.h>
#include <numbers>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;
using testing::SizeIs;

constexpr auto beepLength = 100ms;

/// At each whole second of the steady clock.
float beeping(std::chrono::nanoseconds time)
{
    const double phase = std::fmod(std::chrono::duration<double>(time).count() * 1000, 1.0);
    return time % 1s < beepLength ? static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * phase)) : 0.0F;
}

class RecordingPulseaudioTest : public RecordingJourney {
protected:
    void SetUp() override
    {
        if (const std::string missing = PrivatePulseaudio::missing(); !missing.empty())
            skipTest(missing);
        prepare();
        clock = desktop->folder() / "wall-clock";
        ownClock = {{"LD_PRELOAD", (buildFolder() / "libnimbrale_wall_clock.so").string()},
                    {"NIMBRALE_TEST_WALL_CLOCK", clock.string()}};
        std::string reason;
        server = PrivatePulseaudio::start(reason, ownClock);
        if (!server)
            failTest(reason);
        microphone = PipedMicrophone::start(*server, "desk", 1, &beeping, reason);
        if (!microphone)
            failTest(reason);
    }
    void setClock(std::chrono::seconds shift) const { std::ofstream(clock) << shift.count(); }

    /// When beeps begin in the movie, in seconds.
    [[nodiscard]] static std::vector<double> beepsIn(const std::vector<float>& samples)
    {
        std::vector<double> found;
        constexpr std::size_t step = 480;
        std::size_t quiet = 0;
        for (std::size_t begin = 0; begin + step <= samples.size(); begin += step) {
            const auto piece = std::span(samples).subspan(begin, step);
            const bool isLoud = std::ranges::any_of(piece, [](float sample) { return std::abs(sample) > 0.2F; });
            if (isLoud && quiet > 20) {
                const auto time = static_cast<double>(begin) / 48000;
                found.push_back(beepAround(samples, time, 0.1).value_or(time));
            }
            quiet = isLoud ? 0 : quiet + 1;
        }
        return found;
    }

    std::filesystem::path clock;
    Environment ownClock;
    std::unique_ptr<PrivatePulseaudio> server;
    std::unique_ptr<PipedMicrophone> microphone;
};

TEST_F(RecordingPulseaudioTest, AWallClockThatIsSetInMidRecordingTakesAwayNoSound)
{
    setClock(0s);
    Environment changes = ownClock;
    changes.insert({"PULSE_SERVER", server->environment().at("PULSE_SERVER")});
    start({{"recordMicrophone", "true"}}, changes);
    pressRecord();
    ASSERT_TRUE(isRecording()) << application->process().output();
    sleepFor(Milliseconds{4000});
    setClock(-1h);
    sleepFor(Milliseconds{5000});
    setClock(2h);
    sleepFor(Milliseconds{5000});
    pressRecord();
    ASSERT_TRUE(isSaved()) << application->process().output();

    const MovieFile saved = movie();
    EXPECT_EQ(saved.problems(), "");
    const std::vector<double> beeps = beepsIn(saved.samples(0));
    ASSERT_THAT(beeps, SizeIs(testing::AllOf(testing::Ge(13U), testing::Le(16U))));
    for (std::size_t index = 1; index < beeps.size(); ++index)
        EXPECT_NEAR(beeps[index] - beeps[0], static_cast<double>(index), 0.02);
}

} // namespace
} // namespace nimbrale::test
