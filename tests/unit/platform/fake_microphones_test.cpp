// The stand-ins keep the promises that microphones make, so that what is tested with them holds with real ones.

#include "tests/fakes/fake_microphones.h"

#include <gmock/gmock.h>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::SizeIs;

TEST(FakeMicrophonesTest, SoundReachesAnOpenSourceOnly)
{
    FakeMicrophones microphones;
    std::vector<std::chrono::nanoseconds> times;
    auto source = microphones.open("inner", [&times](const auto& audio, std::chrono::nanoseconds time) {
        EXPECT_EQ(audio->frameCount(), 480U);
        EXPECT_EQ(audio->channels, 1);
        EXPECT_EQ(audio->sample(479, 0), 0.5F);
        times.push_back(time);
    });
    ASSERT_TRUE(source.has_value());
    ASSERT_THAT(microphones.opened, SizeIs(1));
    EXPECT_EQ(microphones.opened.front()->id, "inner");
    microphones.opened.front()->play(480, 0.5F, 1, 7s);
    EXPECT_EQ(microphones.openCount(), 1U);
    source->reset();
    microphones.opened.front()->play(480, 0.5F, 1, 8s);
    EXPECT_THAT(times, ElementsAre(7s));
    EXPECT_EQ(microphones.openCount(), 0U);
}

TEST(FakeMicrophonesTest, OpeningFailsWhenTheTestSaysSo)
{
    FakeSystemAudio audio;
    audio.openResult = fail(ErrorCode::unsupported, "No sound.");
    const auto source = audio.open([](const auto&, std::chrono::nanoseconds) {});
    ASSERT_FALSE(source.has_value());
    EXPECT_EQ(source.error().message, "No sound.");
    EXPECT_THAT(audio.opened, SizeIs(0));
}

TEST(FakeMicrophonesTest, ComingAndGoingIsToldAndAnOpenOneStaysOpen)
{
    FakeMicrophones microphones;
    int changes = 0;
    const Subscription changed = microphones.observeDevices([&changes] { ++changes; });
    microphones.plugIn({"inner", "Inner microphone"});
    const auto source = microphones.open("inner", [](const auto&, std::chrono::nanoseconds) {});
    microphones.unplug("inner");
    EXPECT_EQ(changes, 2);
    EXPECT_EQ(microphones.openCount(), 1U);
    EXPECT_THAT(microphones.devices(), ElementsAre());
}

TEST(FakeMicrophonesTest, AccessIsAnsweredWhenTheTestSaysSo)
{
    FakeMicrophones microphones;
    std::vector<bool> answers;
    microphones.requestAccess([&answers](bool isGranted) { answers.push_back(isGranted); });
    microphones.requestAccess([&answers](bool isGranted) { answers.push_back(isGranted); });
    EXPECT_THAT(answers, ElementsAre());
    microphones.answerAccess(true);
    microphones.answerAccess(false);
    EXPECT_THAT(answers, ElementsAre(true, false));
}

} // namespace
} // namespace nimbrale
