// What the computer plays, on a PulseAudio of the test's own.

#include "tests/desktop/pulseaudio_fixture.h"
#include "tests/desktop/pulseaudio_player.h"

#include <gmock/gmock.h>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;

class PulseaudioSystemAudioTest : public PulseaudioTest {
protected:
    /// The server's number for the program that began to play last, when so many are playing.
    [[nodiscard]] std::string newestPlayer(std::ptrdiff_t count)
    {
        std::string players;
        const auto areThere = [&] {
            players = control({"list", "short", "sink-inputs"});
            return !players.empty() && std::ranges::count(players, '\n') == count - 1;
        };
        if (!eventually(areThere))
            failTest("nothing plays");
        const std::string line = players.substr(players.rfind('\n') + 1);
        return line.substr(0, line.find('\t'));
    }
};

TEST_F(PulseaudioSystemAudioTest, WhatAProgramPlaysIsHeardInTwoChannels)
{
    const std::string loudspeaker = plugInSink("loud");
    const auto player = play("loud", 660);
    Listener listener;
    const auto source = openSystemAudio(listener);
    EXPECT_TRUE(eventually([&] { return listener.hears(660); })) << listener.levelOf(660);
    ASSERT_FALSE(listener.pieces().empty());
    const auto newest = listener.pieces().back().audio;
    EXPECT_EQ(newest->channels, 2);
    EXPECT_EQ(newest->sampleRate, 48000);
    unplugSink(loudspeaker);
}

TEST_F(PulseaudioSystemAudioTest, BeepsAreHeardAtTheirTimes)
{
    const std::string loudspeaker = plugInSink("loud");
    const PulseaudioPlayer player("loud", beeps());
    ASSERT_TRUE(eventually([&] { return player.isPlaying(); }));
    Listener listener;
    const auto source = openSystemAudio(listener);
    ASSERT_TRUE(eventually([&] { return listener.onsets().size() >= 10; }, Milliseconds{20'000}));
    expectOnsetsAtWholeSeconds(listener, 20ms);
    unplugSink(loudspeaker);
}

TEST_F(PulseaudioSystemAudioTest, TheLoudspeakerThatTheUserPrefersIsFollowed)
{
    const std::string first = plugInSink("first");
    const std::string second = plugInSink("second");
    static_cast<void>(control({"set-default-sink", "first"}));
    const auto player = play("first", 660);
    const std::string atFirst = newestPlayer(1);
    const auto other = play("second", 880);
    const std::string atSecond = newestPlayer(2);
    // The server moves what plays along with the preference, which is not what is looked at here.
    const auto prefer = [&](const std::string& sink) {
        static_cast<void>(control({"set-default-sink", sink}));
        static_cast<void>(control({"move-sink-input", atFirst, "first"}));
        static_cast<void>(control({"move-sink-input", atSecond, "second"}));
    };
    Listener listener;
    const auto source = openSystemAudio(listener);
    ASSERT_TRUE(eventually([&] { return listener.hears(660); }));
    EXPECT_LT(listener.levelOf(880), 0.02);
    prefer("second");
    EXPECT_TRUE(eventually([&] { return listener.hears(880) && listener.levelOf(660) < 0.02; }));
    prefer("first");
    EXPECT_TRUE(eventually([&] { return listener.hears(660) && listener.levelOf(880) < 0.02; }));
    unplugSink(first);
    unplugSink(second);
}

TEST_F(PulseaudioSystemAudioTest, WhatAMicrophoneHearsIsNotPlayed)
{
    const std::string loudspeaker = plugInSink("loud");
    const auto player = play("loud", 660);
    const auto microphone = plugInMicrophone("inner", tone(440));
    Listener room;
    Listener computer;
    const auto heard = openMicrophone("inner", room);
    const auto source = openSystemAudio(computer);
    ASSERT_TRUE(eventually([&] { return room.hears(440) && computer.hears(660); }));
    EXPECT_LT(computer.levelOf(440), 0.02);
    EXPECT_LT(room.levelOf(660), 0.02);
    unplugSink(loudspeaker);
}

TEST_F(PulseaudioSystemAudioTest, WhenTheOnlyLoudspeakerGoesItIsHeardAgainOnceItIsBack)
{
    std::string loudspeaker = plugInSink("loud");
    auto player = play("loud", 660);
    Listener listener;
    const auto source = openSystemAudio(listener);
    ASSERT_TRUE(eventually([&] { return listener.hears(660); }));
    player.reset();
    unplugSink(loudspeaker);
    listener.clear();
    loudspeaker = plugInSink("loud");
    player = play("loud", 660);
    EXPECT_TRUE(eventually([&] { return listener.hears(660); }));
    unplugSink(loudspeaker);
}

TEST_F(PulseaudioSystemAudioTest, WithoutALoudspeakerThereIsNothingToListenTo)
{
    Listener listener;
    const auto source = systemAudio->open(listener.handler());
    ASSERT_FALSE(source.has_value());
    EXPECT_EQ(source.error().code, ErrorCode::unsupported);
    const std::string loudspeaker = plugInSink("loud");
    EXPECT_TRUE(systemAudio->open(listener.handler()).has_value());
    unplugSink(loudspeaker);
}

} // namespace
} // namespace nimbrale::test
