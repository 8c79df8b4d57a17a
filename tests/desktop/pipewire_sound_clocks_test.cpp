// When sound was heard, on a PipeWire of the test's own whose devices fall asleep, come back and change their clocks
// while they are listened to. Devices beep at each whole second.

#include "tests/desktop/pipewire_sound_fixture.h"

#include <gmock/gmock.h>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;
std::chrono::nanoseconds now()
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

class PipewireSoundClocksTest : public PipewireSoundTest {
protected:
    void TearDown() override
    {
        if (pipewire && !IsSkipped()) {
            setClock("force-quantum", 0);
            setClock("force-rate", 0);
        }
    }

    [[nodiscard]] std::unique_ptr<VirtualSound> plugInBeepingMicrophone()
    {
        return plugIn({.id = "beeping", .more = {"--channels", "1", "--beep", "1000"}});
    }
    [[nodiscard]] std::unique_ptr<VirtualSound> playBeeps()
    {
        return plugIn(
            {.kind = "player", .id = "player", .name = "Player", .more = {"--target", "loud", "--beep", "1000"}});
    }
    /// Of all that the daemon drives; 0 leaves it to the daemon.
    void setClock(const std::string& setting, int value)
    {
        runProgram("pw-metadata", {"-n", "settings", "0", "clock." + setting, std::to_string(value)});
    }
    /// Waits for beeps from now on, a second for the change before included, and looks at their times. The middle one
    /// counts: a busy computer takes a piece of sound a cycle late now and then, and a beep may begin in it.
    void expectBeepsAtTheirTimes(const Listener& listener, const std::string& when)
    {
        const auto begun = now() + 1s;
        constexpr std::size_t count = 3;
        ASSERT_TRUE(eventually([&] { return listener.onsetsSince(begun).size() >= count; })) << when;
        std::vector<std::chrono::nanoseconds> offsets;
        for (const auto onset : listener.onsetsSince(begun))
            offsets.push_back(offWholeSecond(onset));
        std::ranges::sort(offsets);
        EXPECT_LT(std::chrono::abs(offsets[count / 2]), 5ms) << when << ": " << offsets[count / 2].count() << " ns";
        EXPECT_LT(offsets.back() - offsets.front(), 25ms) << when;
    }
    [[nodiscard]] bool isAsleep(const std::string& node)
    {
        std::string why;
        const auto state = pipewire->nodeState(node, why);
        if (!state)
            failTest(why);
        return *state == "suspended";
    }
};

TEST_F(PipewireSoundClocksTest, ALoudspeakerThatFellAsleepIsHeardAtItsTimeWhenItWakes)
{
    const auto loudspeaker = plugInSink("loud");
    auto player = playBeeps();
    EXPECT_TRUE(eventually([&] { return !isAsleep("loud"); })) << "it never woke";
    player.reset();
    ASSERT_TRUE(eventually([&] { return isAsleep("loud"); }, Milliseconds{15'000}));
    Listener listener;
    const auto source = openSystemAudio(listener);
    player = playBeeps();
    expectBeepsAtTheirTimes(listener, "awake");
}

TEST_F(PipewireSoundClocksTest, ALoudspeakerThatIsSentToSleepInMidRecordingIsHeardAtItsTimeWhenItWakes)
{
    const auto loudspeaker = plugInSink("loud");
    auto player = playBeeps();
    Listener listener;
    const auto source = openSystemAudio(listener);
    expectBeepsAtTheirTimes(listener, "before");
    runProgram("pw-cli", {"send-command", "loud", "Suspend", "{}"});
    expectBeepsAtTheirTimes(listener, "after it was sent to sleep");
}

TEST_F(PipewireSoundClocksTest, AMicrophoneThatIsSentToSleepInMidRecordingIsHeardAtItsTimeWhenItWakes)
{
    const auto microphone = plugInBeepingMicrophone();
    Listener listener;
    const auto source = openMicrophone("beeping", listener);
    expectBeepsAtTheirTimes(listener, "before");
    runProgram("pw-cli", {"send-command", "beeping", "Suspend", "{}"});
    ASSERT_TRUE(microphone->waitFor("unheard")) << "it never slept";
    expectBeepsAtTheirTimes(listener, "after it was sent to sleep");
}

TEST_F(PipewireSoundClocksTest, AQuantumThatChangesMovesNoBeep)
{
    const auto microphone = plugInBeepingMicrophone();
    Listener listener;
    const auto source = openMicrophone("beeping", listener);
    expectBeepsAtTheirTimes(listener, "before");
    for (const int quantum : {2048, 128, 1024}) {
        setClock("force-quantum", quantum);
        ASSERT_TRUE(microphone->waitForClock([&](const auto& clock) { return clock.quantum == quantum; })) << quantum;
        expectBeepsAtTheirTimes(listener, "with quantum " + std::to_string(quantum));
    }
}

TEST_F(PipewireSoundClocksTest, ARateThatChangesMovesNoBeep)
{
    const auto microphone = plugInBeepingMicrophone();
    Listener listener;
    const auto source = openMicrophone("beeping", listener);
    expectBeepsAtTheirTimes(listener, "before");
    for (const int rate : {44'100, 96'000, 48'000}) {
        setClock("force-rate", rate);
        ASSERT_TRUE(microphone->waitForClock([&](const auto& clock) { return clock.rate == rate; })) << rate;
        expectBeepsAtTheirTimes(listener, "at rate " + std::to_string(rate));
    }
}

TEST_F(PipewireSoundClocksTest, ADriverThatTakesTheMicrophoneOverAndLetsItGoMovesNoBeep)
{
    const auto loudspeaker = plugInSink("loud");
    const auto microphone = plugInBeepingMicrophone();
    Listener listener;
    const auto source = openMicrophone("beeping", listener);
    const auto before = microphone->waitForClock([](const auto&) { return true; });
    ASSERT_TRUE(before);
    expectBeepsAtTheirTimes(listener, "before");
    const auto isAnother = [&](const auto& clock) { return clock.driver != before->driver; };
    runProgram("pw-link", {"beeping:capture_MONO", "loud:playback_FL"});
    ASSERT_TRUE(microphone->waitForClock(isAnother)) << "the loudspeaker does not drive it";
    expectBeepsAtTheirTimes(listener, "driven by the loudspeaker");
    runProgram("pw-link", {"-d", "beeping:capture_MONO", "loud:playback_FL"});
    ASSERT_TRUE(microphone->waitForClock([&](const auto& clock) { return !isAnother(clock); }));
    expectBeepsAtTheirTimes(listener, "driven as before");
}

TEST_F(PipewireSoundClocksTest, AMicrophoneThatIsUnpluggedAndComesBackIsHeardAtItsTimeEachTime)
{
    const auto microphone = plugInBeepingMicrophone();
    Listener listener;
    const auto source = openMicrophone("beeping", listener);
    for (const char* const round : {"first", "again", "and again"}) {
        expectBeepsAtTheirTimes(listener, round);
        const auto unplugged = now();
        microphone->tell("unplug");
        ASSERT_TRUE(microphone->waitFor("unplugged"));
        sleepFor(Milliseconds{1500});
        EXPECT_LT(listener.pieces().back().end(), unplugged + 500ms) << "heard while it was away";
        microphone->tell("plug");
        ASSERT_TRUE(microphone->waitFor("plugged"));
    }
    expectBeepsAtTheirTimes(listener, "last");
}

} // namespace
} // namespace nimbrale::test
