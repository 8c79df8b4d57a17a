// What the computer plays, on a PipeWire of the test's own.

#include "tests/desktop/pipewire_sound_fixture.h"

#include <gmock/gmock.h>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

class PipewireSystemAudioTest : public PipewireSoundTest {};

TEST_F(PipewireSystemAudioTest, WhatAProgramPlaysIsHeardInTwoChannels)
{
    const auto loudspeaker = plugInSink("loud");
    const auto player = play("loud", 660);
    Listener listener;
    const auto source = openSystemAudio(listener);
    ASSERT_TRUE(source);
    EXPECT_TRUE(eventually([&] { return listener.hears(660); })) << listener.levelOf(660);
    const auto newest = listener.pieces().back().audio;
    EXPECT_EQ(newest->channels, 2);
    EXPECT_EQ(newest->sampleRate, 48000);
    EXPECT_EQ(newest->sample(newest->frameCount() / 2, 0), newest->sample(newest->frameCount() / 2, 1));
}

TEST_F(PipewireSystemAudioTest, ABeepIsHeardAtItsTime)
{
    const auto loudspeaker = plugInSink("loud");
    const auto player =
        plugIn({.kind = "player", .id = "player", .name = "Player", .more = {"--target", "loud", "--beep", "1000"}});
    Listener listener;
    const auto source = openSystemAudio(listener);
    ASSERT_TRUE(source);
    ASSERT_TRUE(eventually([&] { return listener.onsets().size() >= 3; }));
    expectOnsetsAtWholeSeconds(listener, 5ms);
}

TEST_F(PipewireSystemAudioTest, WhatBeginsToPlayLaterIsHeardAtItsTime)
{
    const auto loudspeaker = plugInSink("loud");
    Listener listener;
    const auto source = openSystemAudio(listener);
    ASSERT_TRUE(source);
    sleepFor(Milliseconds{1200});
    const auto player =
        plugIn({.kind = "player", .id = "player", .name = "Player", .more = {"--target", "loud", "--beep", "1000"}});
    ASSERT_TRUE(eventually([&] { return listener.onsets().size() >= 2; }));
    const auto off = offWholeSecond(listener.onsets().back());
    EXPECT_LT(std::chrono::abs(off), 5ms) << off.count() << " ns";
}

TEST_F(PipewireSystemAudioTest, TheLoudspeakerThatTheUserPrefersIsFollowed)
{
    const auto first = plugInSink("first");
    const auto second = plugInSink("second");
    prefer("audio.sink", "first");
    const auto player = play("first", 660);
    const auto other = plugIn({.kind = "player",
                               .id = "other-player",
                               .name = "Other player",
                               .more = {"--target", "second", "--tone", "880"}});
    Listener listener;
    const auto source = openSystemAudio(listener);
    ASSERT_TRUE(source);
    ASSERT_TRUE(eventually([&] { return listener.hears(660); }));
    EXPECT_LT(listener.levelOf(880), 0.02);
    prefer("audio.sink", "second");
    // For a moment both are heard.
    EXPECT_TRUE(eventually([&] { return listener.hears(880) && listener.levelOf(660) < 0.02; }));
    prefer("audio.sink", "first");
    EXPECT_TRUE(eventually([&] { return listener.hears(660) && listener.levelOf(880) < 0.02; }));
}

TEST_F(PipewireSystemAudioTest, WhenTheOnlyLoudspeakerGoesItIsHeardAgainOnceItIsBack)
{
    const auto loudspeaker = plugInSink("loud");
    auto player = play("loud", 660);
    Listener listener;
    const auto source = openSystemAudio(listener);
    ASSERT_TRUE(source);
    ASSERT_TRUE(eventually([&] { return listener.hears(660); }));
    player.reset(); // It stays with its loudspeaker.
    loudspeaker->tell("unplug");
    ASSERT_TRUE(loudspeaker->waitFor("unplugged"));
    sleepFor(Milliseconds{500});
    listener.clear();
    loudspeaker->tell("plug");
    ASSERT_TRUE(loudspeaker->waitFor("plugged"));
    player = play("loud", 660);
    EXPECT_TRUE(eventually([&] { return listener.hears(660); }));
}

TEST_F(PipewireSystemAudioTest, WhenTheDaemonIsBackItIsHeardAgain)
{
    auto loudspeaker = plugInSink("loud");
    auto player = play("loud", 660);
    Listener listener;
    const auto source = openSystemAudio(listener);
    ASSERT_TRUE(source);
    ASSERT_TRUE(eventually([&] { return listener.hears(660); }));
    pipewire->crash();
    loudspeaker->crash();
    player->crash();
    listener.clear();
    EXPECT_FALSE(eventually([&] { return listener.hears(660); }, Milliseconds{500}));
    ASSERT_TRUE(pipewire->startAgain(reason)) << reason;
    loudspeaker = plugInSink("loud");
    player = play("loud", 660);
    EXPECT_TRUE(eventually([&] { return listener.hears(660); }));
}

TEST_F(PipewireSystemAudioTest, ClosingEndsTheNodeAtOnce)
{
    const auto loudspeaker = plugInSink("loud");
    Listener listener;
    std::string why;
    auto source = openSystemAudio(listener);
    ASSERT_TRUE(source);
    ASSERT_TRUE(eventually([&] { return !listener.pieces().empty(); }));
    EXPECT_EQ(pipewire->hasNode("nimbrale-system-audio", why), true) << why;
    source.reset();
    EXPECT_EQ(pipewire->hasNode("nimbrale-system-audio", why), false) << why;
}

TEST_F(PipewireSystemAudioTest, WithoutALoudspeakerOpeningFailsWithAReason)
{
    const auto microphone = plugInMicrophone("inner", 440);
    Listener listener;
    const auto source = systemAudio->open(listener.handler());
    ASSERT_FALSE(source.has_value());
    EXPECT_EQ(source.error().code, ErrorCode::unsupported);
    EXPECT_THAT(source.error().message, HasSubstr("sound output"));
}

TEST_F(PipewireSystemAudioTest, WithoutADaemonOpeningFailsWithAReason)
{
    pipewire->crash();
    Listener listener;
    const auto source = systemAudio->open(listener.handler());
    ASSERT_FALSE(source.has_value());
    EXPECT_EQ(source.error().code, ErrorCode::temporary);
    EXPECT_TRUE(pipewire->startAgain(reason)) << reason;
}

} // namespace
} // namespace nimbrale::test
