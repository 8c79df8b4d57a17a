// The computer's microphones on a PipeWire of the test's own: which there are, and what is heard of them.

#include "tests/desktop/pipewire_sound_fixture.h"
#include "tests/fakes/log_capture.h"

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// How many threads of this process have that name.
int threadsNamed(const std::string& name)
{
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string found;
        std::getline(std::ifstream(task.path() / "comm"), found);
        count += found == name;
    }
    return count;
}

std::ptrdiff_t descriptorsOfThisProcess()
{
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

template <typename Work>
Milliseconds timeOf(const Work& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - start);
}

class PipewireMicrophonesTest : public PipewireSoundTest {};

TEST_F(PipewireMicrophonesTest, MicrophonesAreListedByTheirNameAndLoudspeakersAreNot)
{
    const auto loudspeaker = plugInSink("loud");
    const auto microphone = plugInMicrophone("inner", 440);
    ASSERT_TRUE(eventually([&] { return isListed("inner"); }));
    EXPECT_THAT(microphones->devices(), ElementsAre(MicrophoneDevice{"inner", "Microphone inner"}));
}

TEST_F(PipewireMicrophonesTest, TheDaemonIsNotAskedBeforeTheFirstQuestion)
{
    const auto microphone = plugInMicrophone("inner", 440);
    int changes = 0;
    const Subscription changed = microphones->observeDevices([&changes] { ++changes; });
    EXPECT_FALSE(eventually([&] { return changes > 0; }, Milliseconds{300}));
    EXPECT_EQ(threadsNamed("nimbrale-nodes"), 0);
    EXPECT_THAT(microphones->devices(), IsEmpty());
    EXPECT_EQ(threadsNamed("nimbrale-nodes"), 1);
    EXPECT_TRUE(eventually([&] { return changes > 0 && isListed("inner"); }));
}

TEST_F(PipewireMicrophonesTest, ComingAndGoingIsTold)
{
    const auto microphone = plugInMicrophone("coming", 440);
    ASSERT_TRUE(eventually([&] { return isListed("coming"); }));
    int changes = 0;
    const Subscription changed = microphones->observeDevices([&changes] { ++changes; });
    microphone->tell("unplug");
    EXPECT_TRUE(eventually([&] { return changes > 0 && !isListed("coming"); }));
    changes = 0;
    microphone->tell("plug");
    EXPECT_TRUE(eventually([&] { return changes > 0 && isListed("coming"); }));
}

TEST_F(PipewireMicrophonesTest, ThePreferredOneIsFollowedAndIsNeverALoudspeaker)
{
    const auto loudspeaker = plugInSink("loud");
    auto first = plugInMicrophone("first", 440);
    auto second = plugInMicrophone("second", 660);
    ASSERT_TRUE(eventually([&] { return isListed("first") && isListed("second"); }));
    for (const std::string id : {"first", "second", "first"}) {
        prefer("audio.source", id);
        EXPECT_TRUE(eventually([&] { return microphones->preferredDevice() == id; })) << id;
    }
    first.reset();
    EXPECT_TRUE(eventually([&] { return microphones->preferredDevice() == "second"; })) << "it falls back";
    second.reset();
    // The daemon's default source is the loudspeaker now.
    EXPECT_TRUE(eventually([&] { return microphones->preferredDevice() == std::nullopt; }));
    EXPECT_FALSE(eventually([&] { return microphones->preferredDevice().has_value(); }, Milliseconds{500}));
    EXPECT_THAT(microphones->devices(), IsEmpty());
}

TEST_F(PipewireMicrophonesTest, AToneIsHeardWithItsPitchAndLevel)
{
    for (const int channels : {1, 2}) {
        const auto microphone = plugInMicrophone("inner", 440, channels);
        Listener listener;
        const auto source = openMicrophone("inner", listener);
        ASSERT_TRUE(source);
        EXPECT_TRUE(eventually([&] { return listener.hears(440); })) << listener.levelOf(440);
        EXPECT_LT(listener.levelOf(1000), 0.02);
        EXPECT_EQ(listener.pieces().back().audio->channels, channels);
        EXPECT_EQ(listener.pieces().back().audio->sampleRate, 48000);
    }
}

TEST_F(PipewireMicrophonesTest, PiecesFollowOneAnotherWithoutGapsAndWithoutOverlaps)
{
    const auto microphone = plugInMicrophone("inner", 440);
    Listener listener;
    const auto source = openMicrophone("inner", listener);
    ASSERT_TRUE(source);
    ASSERT_TRUE(eventually([&] { return listener.hears(440); }));
    listener.clear();
    ASSERT_TRUE(eventually([&] { return listener.pieces().size() > 100; }));
    const auto pieces = listener.pieces();
    std::chrono::nanoseconds gaps{};
    for (std::size_t index = 1; index < pieces.size(); ++index) {
        const auto gap = pieces[index].time - pieces[index - 1].end();
        EXPECT_GE(gap, -1us) << "piece " << index;
        gaps += gap;
    }
    EXPECT_LT(gaps, 100ms) << "a busy computer may lose pieces, but not many";
}

TEST_F(PipewireMicrophonesTest, ABeepIsHeardAtItsTime)
{
    const auto microphone = plugIn({.id = "beeping", .more = {"--channels", "1", "--beep", "1000"}});
    Listener listener;
    const auto source = openMicrophone("beeping", listener);
    ASSERT_TRUE(source);
    ASSERT_TRUE(eventually([&] { return listener.onsets().size() >= 2; }));
    expectOnsetsAtWholeSeconds(listener, 5ms);
}

TEST_F(PipewireMicrophonesTest, WhatTheComputerPlaysIsNotHeardInAMicrophone)
{
    const auto loudspeaker = plugInSink("loud");
    const auto player = play("loud", 660);
    const auto microphone = plugInMicrophone("inner", 440);
    Listener room;
    Listener computer;
    const auto source = openMicrophone("inner", room);
    const auto playing = openSystemAudio(computer);
    ASSERT_TRUE(source && playing);
    ASSERT_TRUE(eventually([&] { return room.hears(440) && computer.hears(660); }));
    EXPECT_LT(room.levelOf(660), 0.02);
    EXPECT_LT(computer.levelOf(440), 0.02);
}

TEST_F(PipewireMicrophonesTest, AMicrophoneThatIsUnpluggedIsHeardAgainWhenItIsBackAndNoOtherInItsPlace)
{
    const auto other = plugInMicrophone("other", 660);
    const auto microphone = plugInMicrophone("loose", 440);
    Listener listener;
    const auto source = openMicrophone("loose", listener);
    ASSERT_TRUE(source);
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(eventually([&] { return listener.hears(440); })) << "round " << round;
        microphone->tell("unplug");
        ASSERT_TRUE(microphone->waitFor("unplugged"));
        sleepFor(Milliseconds{400});
        const auto before = listener.pieces();
        EXPECT_LT(listener.levelOf(660), 0.02) << "the other one is heard";
        listener.clear();
        microphone->tell("plug");
        ASSERT_TRUE(eventually([&] { return listener.hears(440); })) << "round " << round;
        const auto silence = listener.pieces().front().time - before.back().end();
        EXPECT_GT(silence, 350ms) << "the time without sound is no gap in the times";
        EXPECT_LT(silence, 3s);
    }
}

TEST_F(PipewireMicrophonesTest, AMicrophoneThatIsNotThereIsHeardOnceItIs)
{
    const auto other = plugInMicrophone("other", 660);
    Listener listener;
    const LogCapture log;
    const auto source = openMicrophone("absent", listener);
    ASSERT_TRUE(source);
    EXPECT_FALSE(eventually([&] { return !listener.pieces().empty(); }, Milliseconds{500}));
    EXPECT_THAT(log.lines(), testing::Contains(testing::Field(&LogCapture::Line::message, HasSubstr("absent"))));
    const auto microphone = plugInMicrophone("absent", 440);
    EXPECT_TRUE(eventually([&] { return listener.hears(440); }));
}

TEST_F(PipewireMicrophonesTest, ClosingLetsTheMicrophoneGoAtOnce)
{
    const auto microphone = plugInMicrophone("lit", 440);
    Listener listener;
    auto source = openMicrophone("lit", listener);
    ASSERT_TRUE(source);
    ASSERT_TRUE(microphone->waitFor("heard"));
    ASSERT_TRUE(eventually([&] { return listener.hears(440); }));
    EXPECT_LT(timeOf([&] { source.reset(); }), Milliseconds{400});
    const std::size_t count = listener.pieces().size();
    EXPECT_TRUE(microphone->waitFor("unheard", Milliseconds{1000}));
    EXPECT_EQ(listener.pieces().size(), count) << "sound came after the end";
    EXPECT_EQ(threadsNamed("nimbrale-sound"), 0);
}

TEST_F(PipewireMicrophonesTest, WhenTheDaemonIsBackTheMicrophoneIsHeardAgain)
{
    auto microphone = plugInMicrophone("surviving", 440);
    Listener listener;
    const auto source = openMicrophone("surviving", listener);
    ASSERT_TRUE(source);
    ASSERT_TRUE(eventually([&] { return isListed("surviving") && listener.hears(440); }));
    pipewire->crash();
    microphone->crash();
    EXPECT_TRUE(eventually([&] { return microphones->devices().empty(); }));
    const auto before = listener.pieces();
    listener.clear();
    EXPECT_FALSE(eventually([&] { return !listener.pieces().empty(); }, Milliseconds{500}));
    ASSERT_TRUE(pipewire->startAgain(reason)) << reason;
    microphone = plugInMicrophone("surviving", 440);
    EXPECT_TRUE(eventually([&] { return isListed("surviving") && listener.hears(440); }));
    EXPECT_GT(listener.pieces().front().time - before.back().end(), 400ms);
}

TEST_F(PipewireMicrophonesTest, WithoutADaemonOpeningFailsWithAReason)
{
    pipewire->crash();
    Listener listener;
    const auto source = microphones->open("anything", listener.handler());
    ASSERT_FALSE(source.has_value());
    EXPECT_EQ(source.error().code, ErrorCode::temporary);
    EXPECT_THAT(source.error().message, HasSubstr("PipeWire"));
    EXPECT_TRUE(pipewire->startAgain(reason)) << reason;
}

TEST_F(PipewireMicrophonesTest, ADaemonThatHangsHoldsNobodyUpForLong)
{
    const auto microphone = plugInMicrophone("hung", 440);
    Listener listener;
    auto source = openMicrophone("hung", listener);
    ASSERT_TRUE(source && eventually([&] { return listener.hears(440); }));
    ASSERT_EQ(kill(pipewire->daemon(), SIGSTOP), 0);
    EXPECT_LT(timeOf([&] { EXPECT_FALSE(microphones->open("hung", listener.handler()).has_value()); }),
              Milliseconds{2500});
    EXPECT_LT(timeOf([&] { source.reset(); }), Milliseconds{1000});
    kill(pipewire->daemon(), SIGCONT);
}

TEST_F(PipewireMicrophonesTest, AccessIsGrantedWhenTheDevicesAreKnown)
{
    const auto microphone = plugInMicrophone("inner", 440);
    std::vector<std::string> seen;
    std::optional<bool> answer;
    const auto ask = [&] {
        answer.reset();
        microphones->requestAccess([&](bool isAllowed) {
            answer = isAllowed;
            for (const MicrophoneDevice& device : microphones->devices())
                seen.push_back(device.id);
        });
    };
    ask();
    EXPECT_EQ(answer, std::nullopt) << "answered within the call";
    EXPECT_TRUE(eventually([&] { return answer.has_value(); }));
    EXPECT_EQ(answer, true);
    EXPECT_THAT(seen, ElementsAre("inner"));
    ask();
    EXPECT_EQ(answer, std::nullopt);
    EXPECT_TRUE(eventually([&] { return answer == true; })) << "asked again";
    isGranted = false;
    ask();
    EXPECT_TRUE(eventually([&] { return answer == false; }));
}

TEST_F(PipewireMicrophonesTest, AccessIsAnsweredWhereTheDaemonCannotBeReached)
{
    std::optional<bool> answer;
    pipewire->crash();
    microphones->requestAccess([&](bool isAllowed) { answer = isAllowed; });
    EXPECT_TRUE(eventually([&] { return answer == true; }, Milliseconds{1000})) << "without a daemon";
    ASSERT_TRUE(pipewire->startAgain(reason)) << reason;

    known = std::make_unique<pipewire::KnownDevices>(queue);
    microphones = pipewire::createPipewireMicrophones(*known, [](const auto& onAnswer) { onAnswer(true); });
    answer.reset();
    ASSERT_EQ(kill(pipewire->daemon(), SIGSTOP), 0);
    microphones->requestAccess([&](bool isAllowed) { answer = isAllowed; });
    EXPECT_FALSE(eventually([&] { return answer.has_value(); }, Milliseconds{300}));
    queue.advance(pipewire::KnownDevices::longestAnswer);
    EXPECT_EQ(answer, true) << "with a daemon that hangs";
    kill(pipewire->daemon(), SIGCONT);
}

TEST_F(PipewireMicrophonesTest, WhoIsTooSlowLosesSoundButNotTheTimesOfTheRest)
{
    const auto microphone = plugInMicrophone("inner", 440, 2);
    Listener listener;
    const LogCapture log;
    std::atomic<bool> isSlow = false;
    const auto source = microphones->open("inner", [&, handler = listener.handler()](const auto& audio, auto time) {
        if (isSlow.exchange(false))
            sleepFor(Milliseconds{4000});
        handler(audio, time);
    });
    ASSERT_TRUE(source.has_value());
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(eventually([&] { return listener.hears(440); }));
        listener.clear();
        isSlow = true;
        // Longer than it takes to play what the ring keeps, and the time that is lost after it.
        ASSERT_TRUE(waitUntil(
            [&] {
                const auto heard = listener.pieces();
                return !heard.empty() && heard.back().time - heard.front().time > 5s;
            },
            Milliseconds{10'000}));
        const auto pieces = listener.pieces();
        // All together: a busy computer loses some of it before the ring is full.
        std::chrono::nanoseconds lost{};
        for (std::size_t index = 1; index < pieces.size(); ++index)
            lost += pieces[index].time - pieces[index - 1].end();
        EXPECT_GT(lost, 800ms) << "nothing was lost";
        EXPECT_LT(lost, 4s);
    }
    const auto lines = log.lines();
    EXPECT_EQ(std::ranges::count_if(
                  lines, [](const auto& line) { return line.message.find("was lost") != std::string::npos; }),
              1);
}

TEST_F(PipewireMicrophonesTest, NothingIsLeftOfFiftyThatWereOpen)
{
    const auto microphone = plugInMicrophone("often", 440);
    const auto useOnce = [&] {
        Listener listener;
        const auto source = openMicrophone("often", listener);
        ASSERT_TRUE(source);
        ASSERT_TRUE(waitUntil([&] { return !listener.pieces().empty(); }, Milliseconds{5000}));
    };
    useOnce(); // What the library makes once for all stays.
    const std::ptrdiff_t before = descriptorsOfThisProcess();
    {
        Listener listener;
        const auto source = openMicrophone("often", listener);
        EXPECT_GT(descriptorsOfThisProcess(), before) << "an open microphone has descriptors";
        EXPECT_EQ(threadsNamed("nimbrale-sound"), 1);
    }
    for (int round = 0; round < 50; ++round)
        useOnce();
    EXPECT_EQ(descriptorsOfThisProcess(), before);
    EXPECT_EQ(threadsNamed("nimbrale-sound"), 0);
}

} // namespace
} // namespace nimbrale::test
