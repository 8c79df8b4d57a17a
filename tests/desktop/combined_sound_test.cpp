// Microphones and the system's sound where PipeWire and PulseAudio both run, each a server of the test's own: which one
// counts, as PipeWire's devices come and go, and PipeWire itself.

#include "platform/combined_audio.h"
#include "platform/pipewire/pipewire_audio.h"
#include "tests/desktop/pulseaudio_fixture.h"
#include "tests/support/private_pipewire.h"

#include <gmock/gmock.h>

namespace nimbrale::test {
namespace {

using testing::ElementsAre;

class CombinedSoundTest : public SoundTest<PulseaudioSessionTest> {
protected:
    ~CombinedSoundTest() override { microphones.reset(); } // They use what is known.

    void SetUp() override
    {
        PulseaudioSessionTest::SetUp();
        if (IsSkipped() || HasFatalFailure())
            return;
        if (const std::string lacking = PrivatePipewire::missing(); !lacking.empty())
            GTEST_SKIP() << lacking;
        pipewire = PrivatePipewire::start(reason);
        ASSERT_TRUE(pipewire) << reason;
        qputenv("PIPEWIRE_RUNTIME_DIR", pipewire->runtimeFolder().c_str());
        microphones =
            combineMicrophones(pipewire::createPipewireMicrophones(known, [](const auto& onAnswer) { onAnswer(true); }),
                               {[this] { return known.hasSound(); },
                                [this](std::function<void()> told) { return known.observeSound(std::move(told)); }},
                               pulseaudio::createPulseaudioMicrophones(queue));
        systemAudio =
            combineSystemAudio(pipewire::createPipewireSystemAudio(), pulseaudio::createPulseaudioSystemAudio());
    }

    [[nodiscard]] std::unique_ptr<VirtualSound> plugIn(const VirtualSound::Options& options)
    {
        auto sound = VirtualSound::start(*pipewire, options, reason);
        if (!sound)
            failTest(reason);
        return sound;
    }
    [[nodiscard]] std::unique_ptr<VirtualSound> plugInNative(const std::string& id, double frequency)
    {
        return plugIn({.id = id, .name = "Native", .more = {"--channels", "1", "--tone", std::to_string(frequency)}});
    }

    std::unique_ptr<PrivatePipewire> pipewire;
    pipewire::KnownDevices known{queue};
};

TEST_F(CombinedSoundTest, WherePipewireHasNoSoundPulseaudiosIsHeard)
{
    const std::string loudspeaker = plugInSink("loud");
    const auto player = play("loud", 660);
    const auto microphone = plugInMicrophone("inner", tone(440));
    EXPECT_TRUE(eventually([&] { return isListed("inner"); }));
    EXPECT_EQ(known.hasSound(), false) << "PipeWire was not asked";
    Listener room;
    Listener computer;
    const auto heard = openMicrophone("inner", room);
    const auto playing = openSystemAudio(computer);
    EXPECT_TRUE(eventually([&] { return room.hears(440) && computer.hears(660); }));
    unplugSink(loudspeaker);
}

TEST_F(CombinedSoundTest, WherePipewireHasSoundPulseaudiosIsLeftAlone)
{
    const std::string loudspeaker = plugInSink("loud");
    const auto other = play("loud", 880);
    const auto microphone = plugInMicrophone("inner", tone(550));
    const auto native = plugInNative("native", 440);
    const auto nativeLoud = plugIn({.kind = "sink", .id = "native-loud", .name = "Loudspeaker"});
    const auto player = plugIn(
        {.kind = "player", .id = "player", .name = "Player", .more = {"--target", "native-loud", "--tone", "660"}});
    ASSERT_TRUE(eventually([&] { return isListed("native"); }));
    EXPECT_THAT(microphones->devices(), ElementsAre(MicrophoneDevice{"native", "Native"}));
    Listener room;
    Listener computer;
    const auto heard = openMicrophone("native", room);
    const auto playing = openSystemAudio(computer);
    EXPECT_TRUE(eventually([&] { return room.hears(440) && computer.hears(660); }));
    EXPECT_LT(computer.levelOf(880), 0.02);
    EXPECT_LT(room.levelOf(550), 0.02);
    unplugSink(loudspeaker);
}

TEST_F(CombinedSoundTest, WhenPipewiresLastDeviceGoesPulseaudiosCountUntilOneIsBack)
{
    const auto microphone = plugInMicrophone("inner", tone(550));
    const auto native = plugInNative("native", 440);
    ASSERT_TRUE(eventually([&] { return isListed("native"); }));
    Listener listener;
    const auto before = openMicrophone("native", listener);
    ASSERT_TRUE(eventually([&] { return listener.hears(440); }));
    native->tell("unplug");
    ASSERT_TRUE(eventually([&] { return isListed("inner") && !isListed("native"); }));
    Listener other;
    const auto meanwhile = openMicrophone("inner", other);
    EXPECT_TRUE(eventually([&] { return other.hears(550); }));
    listener.clear();
    native->tell("plug");
    EXPECT_TRUE(eventually([&] { return isListed("native") && !isListed("inner"); }));
    // Each goes on with the service that it was opened at.
    EXPECT_TRUE(eventually([&] { return listener.hears(440); }));
    other.clear();
    EXPECT_TRUE(eventually([&] { return other.hears(550); }));
}

TEST_F(CombinedSoundTest, WhenPipewireEndsPulseaudiosSoundCountsUntilItIsBack)
{
    const std::string loudspeaker = plugInSink("loud");
    const auto player = play("loud", 660);
    const auto microphone = plugInMicrophone("inner", tone(550));
    auto native = plugInNative("native", 440);
    ASSERT_TRUE(eventually([&] { return isListed("native"); }));
    pipewire->crash();
    native->crash();
    ASSERT_TRUE(eventually([&] { return isListed("inner") && !isListed("native"); }));
    Listener room;
    Listener computer;
    const auto heard = openMicrophone("inner", room);
    const auto playing = openSystemAudio(computer);
    EXPECT_TRUE(eventually([&] { return room.hears(550) && computer.hears(660); }));
    ASSERT_TRUE(pipewire->startAgain(reason)) << reason;
    native = plugInNative("native", 440);
    EXPECT_TRUE(eventually([&] { return isListed("native") && !isListed("inner"); }));
    room.clear();
    EXPECT_TRUE(eventually([&] { return room.hears(550); })) << "what was open went";
    unplugSink(loudspeaker);
}

} // namespace
} // namespace nimbrale::test
