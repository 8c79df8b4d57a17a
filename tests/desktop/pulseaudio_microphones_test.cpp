// The computer's microphones on a PulseAudio of the test's own: which there are, and what is heard of them.

#include "tests/desktop/pulseaudio_fixture.h"
#include "tests/fakes/log_capture.h"

#include <csignal>
#include <gmock/gmock.h>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class PulseaudioMicrophonesTest : public PulseaudioTest {};

template <typename Work>
Milliseconds timeOf(const Work& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - start);
}

TEST_F(PulseaudioMicrophonesTest, MicrophonesAreListedByTheirNameAndLoudspeakersAreNot)
{
    const std::string loudspeaker = plugInSink("loud");
    ASSERT_THAT(control({"list", "short", "sources"}), HasSubstr("loud.monitor")) << "nothing to be left out";
    const auto microphone = plugInMicrophone("inner", tone(440));
    EXPECT_TRUE(eventually([&] { return isListed("inner"); }));
    EXPECT_THAT(microphones->devices(), ElementsAre(MicrophoneDevice{"inner", "Microphone inner"}));
    unplugSink(loudspeaker);
}

TEST_F(PulseaudioMicrophonesTest, ComingAndGoingIsTold)
{
    const auto microphone = plugInMicrophone("coming", tone(440));
    ASSERT_TRUE(eventually([&] { return isListed("coming"); }));
    int changes = 0;
    const Subscription changed = microphones->observeDevices([&changes] { ++changes; });
    ASSERT_TRUE(microphone->unplug(reason)) << reason;
    EXPECT_TRUE(eventually([&] { return changes > 0 && !isListed("coming"); }));
    changes = 0;
    ASSERT_TRUE(microphone->plug(reason)) << reason;
    EXPECT_TRUE(eventually([&] { return changes > 0 && isListed("coming"); }));
}

TEST_F(PulseaudioMicrophonesTest, ThePreferredOneIsFollowedAndIsNeverALoudspeaker)
{
    const std::string loudspeaker = plugInSink("loud");
    const auto first = plugInMicrophone("first", tone(440));
    const auto second = plugInMicrophone("second", tone(660));
    for (const std::string id : {"first", "second", "first"}) {
        static_cast<void>(control({"set-default-source", id}));
        EXPECT_TRUE(eventually([&] { return microphones->preferredDevice() == id; })) << id;
    }
    static_cast<void>(control({"set-default-source", "loud.monitor"}));
    EXPECT_TRUE(eventually([&] { return !microphones->preferredDevice(); }));
    EXPECT_TRUE(isListed("first"));
    unplugSink(loudspeaker);
}

TEST_F(PulseaudioMicrophonesTest, AToneIsHeardWithItsPitchAndLevel)
{
    for (const int channels : {1, 2}) {
        const auto microphone = plugInMicrophone("inner", tone(440), channels);
        Listener listener;
        const auto source = openMicrophone("inner", listener);
        EXPECT_TRUE(eventually([&] { return listener.hears(440); })) << listener.levelOf(440);
        EXPECT_LT(listener.levelOf(1000), 0.02);
        ASSERT_FALSE(listener.pieces().empty());
        EXPECT_EQ(listener.pieces().back().audio->channels, channels);
        EXPECT_EQ(listener.pieces().back().audio->sampleRate, 48000);
    }
}

TEST_F(PulseaudioMicrophonesTest, BeepsAreHeardAtTheirTimesFor20Seconds)
{
    const auto microphone = plugInMicrophone("beeping", beeps());
    Listener listener;
    const auto source = openMicrophone("beeping", listener);
    ASSERT_TRUE(eventually([&] { return listener.onsets().size() >= 20; }, Milliseconds{30'000}));
    expectOnsetsAtWholeSeconds(listener, 20ms);
    const auto pieces = listener.pieces();
    for (std::size_t index = 1; index < pieces.size(); ++index)
        EXPECT_GE(pieces[index].time - pieces[index - 1].end(), -1us) << "piece " << index;
}

TEST_F(PulseaudioMicrophonesTest, AMicrophoneThatIsUnpluggedIsHeardAgainWhenItIsBackAndNoOtherInItsPlace)
{
    const auto other = plugInMicrophone("other", tone(660));
    const auto microphone = plugInMicrophone("loose", tone(440));
    Listener listener;
    const auto source = openMicrophone("loose", listener);
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(eventually([&] { return listener.hears(440); })) << "round " << round;
        ASSERT_TRUE(microphone->unplug(reason)) << reason;
        sleepFor(Milliseconds{400});
        const auto before = listener.pieces();
        EXPECT_LT(listener.levelOf(660), 0.02) << "the other one is heard";
        listener.clear();
        ASSERT_TRUE(microphone->plug(reason)) << reason;
        ASSERT_TRUE(eventually([&] { return listener.hears(440); })) << "round " << round;
        const auto silence = listener.pieces().front().time - before.back().end();
        EXPECT_GT(silence, 350ms) << "the time without sound is no gap in the times";
        EXPECT_LT(silence, 3s);
    }
}

TEST_F(PulseaudioMicrophonesTest, AMicrophoneThatIsNotThereIsHeardOnceItIs)
{
    const auto other = plugInMicrophone("other", tone(660));
    Listener listener;
    const LogCapture log;
    const auto source = openMicrophone("absent", listener);
    EXPECT_FALSE(eventually([&] { return !listener.pieces().empty(); }, Milliseconds{500}));
    EXPECT_THAT(log.lines(), testing::Contains(testing::Field(&LogCapture::Line::message, HasSubstr("absent"))));
    const auto microphone = plugInMicrophone("absent", tone(440));
    EXPECT_TRUE(eventually([&] { return listener.hears(440); }));
}

TEST_F(PulseaudioMicrophonesTest, ClosingLetsTheMicrophoneGoAtOnce)
{
    const auto microphone = plugInMicrophone("lit", tone(440));
    Listener listener;
    auto source = openMicrophone("lit", listener);
    ASSERT_TRUE(eventually([&] { return listener.hears(440); }));
    ASSERT_THAT(control({"list", "short", "source-outputs"}), Not(IsEmpty())) << "nobody listens";
    EXPECT_LT(timeOf([&] { source.reset(); }), Milliseconds{400});
    const std::size_t count = listener.pieces().size();
    EXPECT_TRUE(eventually([&] { return control({"list", "short", "source-outputs"}).empty(); }, Milliseconds{1000}));
    EXPECT_EQ(listener.pieces().size(), count) << "sound came after the end";
}

TEST_F(PulseaudioMicrophonesTest, WhenTheServerIsBackTheMicrophoneIsHeardAgain)
{
    auto microphone = plugInMicrophone("surviving", tone(440));
    Listener listener;
    const auto source = openMicrophone("surviving", listener);
    ASSERT_TRUE(eventually([&] { return isListed("surviving") && listener.hears(440); }));
    pulseaudio->end();
    EXPECT_TRUE(eventually([&] { return microphones->devices().empty(); }));
    const auto before = listener.pieces();
    listener.clear();
    EXPECT_FALSE(eventually([&] { return !listener.pieces().empty(); }, Milliseconds{500}));
    ASSERT_TRUE(pulseaudio->startAgain(reason)) << reason;
    ASSERT_TRUE(microphone->plug(reason)) << reason;
    EXPECT_TRUE(eventually([&] { return isListed("surviving") && listener.hears(440); }));
    ASSERT_FALSE(listener.pieces().empty());
    EXPECT_GT(listener.pieces().front().time - before.back().end(), 400ms);
}

TEST_F(PulseaudioMicrophonesTest, WithoutAServerOpeningFailsWithAReason)
{
    pulseaudio->end();
    Listener listener;
    const auto source = microphones->open("anything", listener.handler());
    ASSERT_FALSE(source.has_value());
    EXPECT_EQ(source.error().code, ErrorCode::temporary);
    EXPECT_THAT(source.error().message, HasSubstr("PulseAudio"));
    EXPECT_TRUE(pulseaudio->startAgain(reason)) << reason;
}

TEST_F(PulseaudioMicrophonesTest, AServerThatHangsHoldsNobodyUpForLong)
{
    const auto microphone = plugInMicrophone("hung", tone(440));
    Listener listener;
    auto source = openMicrophone("hung", listener);
    ASSERT_TRUE(eventually([&] { return listener.hears(440); }));
    ASSERT_EQ(kill(pulseaudio->server(), SIGSTOP), 0);
    EXPECT_LT(timeOf([&] { EXPECT_FALSE(microphones->open("hung", listener.handler()).has_value()); }),
              Milliseconds{2500});
    EXPECT_LT(timeOf([&] { source.reset(); }), Milliseconds{1000});
    kill(pulseaudio->server(), SIGCONT);
}

TEST_F(PulseaudioMicrophonesTest, AccessIsGrantedWhenTheDevicesAreKnownOrCannotBe)
{
    const auto microphone = plugInMicrophone("inner", tone(440));
    std::optional<bool> answer;
    std::vector<MicrophoneDevice> seen;
    const auto ask = [&] {
        answer.reset();
        microphones->requestAccess([&](bool isAllowed) {
            answer = isAllowed;
            seen = microphones->devices();
        });
    };
    for (const char* const round : {"first", "again"}) {
        ask();
        EXPECT_EQ(answer, std::nullopt) << "answered within the call";
        EXPECT_TRUE(eventually([&] { return answer == true; })) << round;
        EXPECT_THAT(seen, ElementsAre(MicrophoneDevice{"inner", "Microphone inner"}));
    }
    pulseaudio->end();
    microphones = pulseaudio::createPulseaudioMicrophones(queue);
    ask();
    EXPECT_TRUE(eventually([&] { return answer == true; }, Milliseconds{1000})) << "without a server";
    EXPECT_THAT(seen, IsEmpty());
    EXPECT_TRUE(pulseaudio->startAgain(reason)) << reason;
}

} // namespace
} // namespace nimbrale::test
