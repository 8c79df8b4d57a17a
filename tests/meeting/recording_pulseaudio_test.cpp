// The real application recording sound where PulseAudio is the sound server.

#include "tests/meeting/recording_journey.h"
#include "tests/support/private_pulseaudio.h"
#include "tests/support/tone.h"
#include "tests/support/wall_clock.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <gmock/gmock.h>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;
using testing::SizeIs;

class RecordingPulseaudioTest : public RecordingJourney {
protected:
    void SetUp() override
    {
        if (const std::string missing = PrivatePulseaudio::missing(); !missing.empty())
            skipTest(missing);
        prepare();
        clock.emplace(desktop->folder() / "wall-clock");
        std::string reason;
        server = PrivatePulseaudio::start(reason, clock->environment());
        if (!server)
            failTest(reason);
        microphone = PipedMicrophone::start(*server, "desk", 1, beeps(), reason);
        if (!microphone)
            failTest(reason);
    }
    /// When beeps begin in the movie, in seconds. One that the movie's end may cut off is left out: its middle says
    /// nothing of its beginning.
    [[nodiscard]] static std::vector<double> beepsIn(const std::vector<float>& samples)
    {
        std::vector<double> found;
        constexpr std::size_t step = 480;
        constexpr std::size_t wholeBeep = 48000 / 5;
        std::size_t quiet = 0;
        for (std::size_t begin = 0; begin + step <= samples.size(); begin += step) {
            const auto piece = std::span(samples).subspan(begin, step);
            const bool isLoud = std::ranges::any_of(piece, [](float sample) { return std::abs(sample) > 0.2F; });
            const bool isWhole = begin + wholeBeep <= samples.size();
            if (isLoud && quiet > 20 && isWhole) {
                const auto time = static_cast<double>(begin) / 48000;
                found.push_back(beepAround(samples, time, 0.1).value_or(time));
            }
            quiet = isLoud ? 0 : quiet + 1;
        }
        return found;
    }

    std::optional<WallClock> clock;
    std::unique_ptr<PrivatePulseaudio> server;
    std::unique_ptr<PipedMicrophone> microphone;
};

TEST_F(RecordingPulseaudioTest, AWallClockThatIsSetInMidRecordingTakesAwayNoSound)
{
    Environment changes = clock->environment();
    changes.insert({"PULSE_SERVER", server->environment().at("PULSE_SERVER")});
    start({{"recordMicrophone", "true"}}, changes);
    pressRecord();
    ASSERT_TRUE(isRecording()) << application->process().output();
    sleepFor(Milliseconds{4000});
    clock->set(-1h);
    sleepFor(Milliseconds{5000});
    clock->set(2h);
    sleepFor(Milliseconds{5000});
    pressRecord();
    ASSERT_TRUE(isSaved()) << application->process().output();

    const MovieFile saved = movie();
    EXPECT_EQ(saved.problems(), "");
    const std::vector<double> heard = beepsIn(saved.samples(0));
    ASSERT_THAT(heard, SizeIs(testing::AllOf(testing::Ge(13U), testing::Le(16U))));
    for (std::size_t index = 1; index < heard.size(); ++index)
        EXPECT_NEAR(heard[index] - heard[0], static_cast<double>(index), 0.02);
}

} // namespace
} // namespace nimbrale::test
