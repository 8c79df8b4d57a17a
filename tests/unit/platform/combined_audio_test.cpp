#include "platform/combined_audio.h"

#include "tests/fakes/fake_microphones.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const MicrophoneDevice nativeOne{"one", "Native one"};
const MicrophoneDevice otherOne{"two", "Other one"};

/// Counts the questions for its devices.
class AskedMicrophones final : public Microphones {
public:
    [[nodiscard]] std::vector<MicrophoneDevice> devices() override
    {
        ++questions;
        return fake.devices();
    }
    [[nodiscard]] std::optional<std::string> preferredDevice() override { return fake.preferredDevice(); }
    [[nodiscard]] Subscription observeDevices(std::function<void()> observer) override
    {
        return fake.observeDevices(std::move(observer));
    }
    void requestAccess(std::function<void(bool isGranted)> onAnswer) override
    {
        fake.requestAccess(std::move(onAnswer));
    }
    [[nodiscard]] Result<std::unique_ptr<OpenAudioSource>> open(const std::string& id, AudioHandler onAudio) override
    {
        return fake.open(id, std::move(onAudio));
    }

    FakeMicrophones fake;
    int questions = 0;
};

class CombinedMicrophonesTest : public testing::Test {
protected:
    CombinedMicrophonesTest()
    {
        auto first = std::make_unique<AskedMicrophones>();
        auto second = std::make_unique<AskedMicrophones>();
        native = first.get();
        other = second.get();
        native->fake.preferred = nativeOne.id;
        other->fake.preferred = otherOne.id;
        other->fake.list = {otherOne};
        combined =
            combineMicrophones(std::move(first),
                               {[this] { return hasSound; },
                                [this](std::function<void()> told) { return soundObservers.add(std::move(told)); }},
                               std::move(second));
        observer = combined->observeDevices([this] { ++changes; });
    }
    void learn(bool isThere)
    {
        hasSound = isThere;
        native->fake.list.clear();
        if (isThere)
            native->fake.list.push_back(nativeOne);
        native->fake.notify();
        soundObservers.notify();
    }

    std::optional<bool> hasSound;
    Observers soundObservers;
    AskedMicrophones* native = nullptr;
    AskedMicrophones* other = nullptr;
    std::unique_ptr<Microphones> combined;
    Subscription observer;
    int changes = 0;
};

TEST_F(CombinedMicrophonesTest, TheSecondIsNotAskedBeforeTheFirstHasAnswered)
{
    EXPECT_EQ(native->questions, 0);
    EXPECT_THAT(combined->devices(), IsEmpty());
    EXPECT_EQ(native->questions, 1);
    EXPECT_EQ(other->questions, 0);
}

TEST_F(CombinedMicrophonesTest, WhereBothAreThereTheFirstCounts)
{
    static_cast<void>(combined->devices());
    learn(true);
    EXPECT_EQ(changes, 1);
    EXPECT_THAT(combined->devices(), ElementsAre(nativeOne));
    EXPECT_EQ(combined->preferredDevice(), nativeOne.id);
    EXPECT_EQ(other->questions, 0);
    other->fake.notify();
    EXPECT_EQ(changes, 1) << "a change that nobody sees was told";
}

TEST_F(CombinedMicrophonesTest, WhereTheFirstHasNoSoundTheSecondCounts)
{
    static_cast<void>(combined->devices());
    learn(false);
    EXPECT_GE(changes, 1);
    EXPECT_THAT(combined->devices(), ElementsAre(otherOne));
    EXPECT_EQ(combined->preferredDevice(), otherOne.id);
    changes = 0;
    native->fake.notify();
    EXPECT_EQ(changes, 0) << "a change that nobody sees was told";
    other->fake.notify();
    EXPECT_EQ(changes, 1);
}

TEST_F(CombinedMicrophonesTest, WhenTheFirstComesLaterItCountsFromThenOn)
{
    static_cast<void>(combined->devices());
    learn(false);
    ASSERT_THAT(combined->devices(), ElementsAre(otherOne));
    changes = 0;
    learn(true);
    EXPECT_EQ(changes, 1);
    EXPECT_THAT(combined->devices(), ElementsAre(nativeOne));
}

TEST_F(CombinedMicrophonesTest, AMicrophoneIsOpenedAtTheServiceThatCounts)
{
    const auto ignore = [](const auto&, auto) {};
    static_cast<void>(combined->devices());
    learn(false);
    const auto first = combined->open("any", ignore);
    EXPECT_EQ(other->fake.openCount(), 1U);
    EXPECT_EQ(native->fake.openCount(), 0U);
    learn(true);
    const auto second = combined->open("any", ignore);
    EXPECT_EQ(native->fake.openCount(), 1U);
    EXPECT_EQ(other->fake.openCount(), 1U) << "what is open stays where it is";
}

TEST_F(CombinedMicrophonesTest, AccessIsAskedForOnceAndTheDevicesThatCountAreKnownThen)
{
    std::optional<bool> answer;
    const auto ask = [&] { combined->requestAccess([&](bool isGranted) { answer = isGranted; }); };
    ask();
    hasSound = false;
    native->fake.answerAccess(true);
    EXPECT_EQ(answer, std::nullopt) << "the second's devices are not known yet";
    ASSERT_EQ(other->fake.questions.size(), 1U);
    other->fake.answerAccess(true);
    EXPECT_EQ(answer, true);

    answer.reset();
    ask();
    native->fake.answerAccess(false);
    EXPECT_EQ(answer, false);
    EXPECT_TRUE(other->fake.questions.empty());

    answer.reset();
    hasSound = true;
    ask();
    native->fake.answerAccess(true);
    EXPECT_EQ(answer, true);
    EXPECT_TRUE(other->fake.questions.empty());
}

class CombinedSystemAudioTest : public testing::Test {
protected:
    CombinedSystemAudioTest()
    {
        auto first = std::make_unique<FakeSystemAudio>();
        auto second = std::make_unique<FakeSystemAudio>();
        native = first.get();
        other = second.get();
        combined = combineSystemAudio(std::move(first), std::move(second));
    }
    [[nodiscard]] Result<std::unique_ptr<OpenAudioSource>> open()
    {
        return combined->open([](const auto&, auto) {});
    }

    FakeSystemAudio* native = nullptr;
    FakeSystemAudio* other = nullptr;
    std::unique_ptr<SystemAudio> combined;
};

TEST_F(CombinedSystemAudioTest, WhereBothAreThereTheFirstIsHeard)
{
    const auto source = open();
    EXPECT_EQ(native->openCount(), 1U);
    EXPECT_TRUE(other->opened.empty());
}

TEST_F(CombinedSystemAudioTest, WhereTheFirstCannotBeHeardTheSecondIsUntilItCan)
{
    native->openResult = fail(ErrorCode::unsupported, "nothing to listen to");
    const auto source = open();
    EXPECT_EQ(other->openCount(), 1U);
    native->openResult = {};
    const auto later = open();
    EXPECT_EQ(native->openCount(), 1U);
    EXPECT_EQ(other->openCount(), 1U);
}

TEST_F(CombinedSystemAudioTest, WhereNeitherCanBeHeardTheFirstReasonIsTold)
{
    native->openResult = fail(ErrorCode::unsupported, "the first reason");
    other->openResult = fail(ErrorCode::temporary, "the second reason");
    const auto source = open();
    ASSERT_FALSE(source.has_value());
    EXPECT_EQ(source.error().message, "the first reason");
}

} // namespace
} // namespace nimbrale
