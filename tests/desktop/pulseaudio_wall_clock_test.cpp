// Somebody sets the time of day, by which the library reckons how long sound was under way, while it is listened to.
// This program contains what moves its own time of day, and the server is started with the same.

#include "tests/desktop/pulseaudio_fixture.h"
#include "tests/desktop/pulseaudio_player.h"
#include "tests/support/wall_clock.h"

#include <QTemporaryDir>

#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;

class PulseaudioWallClockTest : public PulseaudioTest {
protected:
    // The server's time of day moves with that of this program.
    static void SetUpTestSuite()
    {
        ASSERT_TRUE(clockFolder.isValid());
        ASSERT_EQ(setenv(WallClock::variable, clock().file().c_str(), 1), 0);
        serverEnvironment = clock().environment();
        PulseaudioTest::SetUpTestSuite();
    }
    static void TearDownTestSuite()
    {
        PulseaudioTest::TearDownTestSuite();
        unsetenv(WallClock::variable);
    }

    /// By how much the time of day of all is off from now on.
    void setClock(std::chrono::seconds shift)
    {
        const auto distance = [] { return std::chrono::system_clock::now().time_since_epoch() - now(); };
        const auto before = distance();
        clock().set(shift);
        EXPECT_GT(std::chrono::abs(distance() - before), 30min) << "the control: it is not set";
    }
    /// Every second is heard, each at its time, although the clock is set in between.
    void expectEverySecond(const Listener& listener)
    {
        constexpr std::size_t seconds = 12;
        const auto hears = [&](std::size_t count) {
            return eventually([&] { return listener.onsets().size() >= count; }, Milliseconds{20'000});
        };
        ASSERT_TRUE(hears(3));
        setClock(-1h);
        ASSERT_TRUE(hears(7));
        setClock(2h);
        ASSERT_TRUE(hears(seconds));
        expectOnsetsAtWholeSeconds(listener, 20ms);
        const auto onsets = listener.onsets();
        EXPECT_LT(std::chrono::abs(onsets[seconds - 1] - onsets[0] - std::chrono::seconds{seconds - 1}), 30ms)
            << "a beep is missing";
    }

private:
    static WallClock clock() { return WallClock(clockFolder.filePath("wall-clock").toStdString()); }
    static std::chrono::nanoseconds now() { return std::chrono::steady_clock::now().time_since_epoch(); }

    static inline QTemporaryDir clockFolder;
};

TEST_F(PulseaudioWallClockTest, AMicrophoneIsHeardOnAtItsTimes)
{
    const auto microphone = plugInMicrophone("beeping", beeps());
    Listener listener;
    const auto source = openMicrophone("beeping", listener);
    expectEverySecond(listener);
}

TEST_F(PulseaudioWallClockTest, WhatTheComputerPlaysIsHeardOnAtItsTimes)
{
    const std::string loudspeaker = plugInSink("loud");
    const PulseaudioPlayer player("loud", beeps());
    ASSERT_TRUE(eventually([&] { return player.isPlaying(); })) << "from now on it counts, and asks for no time";
    Listener listener;
    const auto source = openSystemAudio(listener);
    expectEverySecond(listener);
    unplugSink(loudspeaker);
}

} // namespace
} // namespace nimbrale::test
