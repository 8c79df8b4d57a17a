// The computer's microphones on a PipeWire of the test's own: which there are, and what is heard of them.

#include "tests/desktop/pipewire_sound_fixture.h"

#include <gmock/gmock.h>

namespace nimbrale::test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

class PipewireMicrophonesTest : public PipewireSoundTest {};

TEST_F(PipewireMicrophonesTest, MicrophonesAreListedByTheirNameAndLoudspeakersAreNot)
{
    const auto loudspeaker = plugInSink("loud");
    const auto microphone = plugInMicrophone("inner", 440);
    ASSERT_TRUE(eventually([&] { return isListed("inner"); }));
    EXPECT_THAT(microphones->devices(), testing::ElementsAre(MicrophoneDevice{"inner", "Microphone inner"}));
    EXPECT_TRUE(eventually([&] { return microphones->preferredDevice() == "inner"; }));
}

TEST_F(PipewireMicrophonesTest, AToneIsHeardWithItsPitchAndLevel)
{
    const auto microphone = plugInMicrophone("inner", 440);
    Listener listener;
    const auto source = openMicrophone("inner", listener);
    ASSERT_TRUE(source);
    EXPECT_TRUE(eventually([&] { return listener.hears(440); })) << listener.levelOf(440);
    EXPECT_LT(listener.levelOf(1000), 0.02);
    EXPECT_EQ(listener.pieces().back().audio->channels, 1);
    EXPECT_EQ(listener.pieces().back().audio->sampleRate, 48000);
}

TEST_F(PipewireMicrophonesTest, WhatTheComputerPlaysIsHeard)
{
    const auto loudspeaker = plugInSink("loud");
    const auto player = play("loud", 660);
    Listener listener;
    const auto source = openSystemAudio(listener);
    ASSERT_TRUE(source);
    EXPECT_TRUE(eventually([&] { return listener.hears(660); })) << listener.levelOf(660);
    EXPECT_EQ(listener.pieces().back().audio->channels, 2);
}

} // namespace
} // namespace nimbrale::test
