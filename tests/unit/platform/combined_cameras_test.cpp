#include "platform/combined_cameras.h"

#include "tests/fakes/fake_cameras.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nimbrale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const CameraDevice serviceOne{"one", "The service's"};
const CameraDevice kernelOne{"two", "The kernel's"};

class CombinedCamerasTest : public testing::Test {
protected:
    CombinedCamerasTest()
    {
        auto first = std::make_unique<FakeCameras>();
        auto second = std::make_unique<FakeCameras>();
        service = first.get();
        kernel = second.get();
        service->preferred = serviceOne.id;
        kernel->list = {kernelOne};
        combined = combineCameras(
            std::move(first),
            {[this] { return isThere; }, [this](std::function<void()> told) { return observers.add(std::move(told)); }},
            std::move(second));
        observer = combined->observeDevices([this] { ++changes; });
    }
    void learn(bool isServiceThere)
    {
        isThere = isServiceThere;
        service->list.clear();
        if (isServiceThere)
            service->list.push_back(serviceOne);
        service->notify();
        observers.notify();
    }

    std::optional<bool> isThere;
    Observers observers;
    FakeCameras* service = nullptr;
    FakeCameras* kernel = nullptr;
    std::unique_ptr<Cameras> combined;
    Subscription observer;
    int changes = 0;
};

TEST_F(CombinedCamerasTest, BeforeAnythingIsKnownThereAreNone)
{
    EXPECT_THAT(combined->devices(), IsEmpty());
}

TEST_F(CombinedCamerasTest, TheKernelsCountWhereThereIsNoService)
{
    static_cast<void>(combined->devices());
    learn(false);
    EXPECT_GE(changes, 1);
    EXPECT_THAT(combined->devices(), ElementsAre(kernelOne));
    EXPECT_EQ(combined->preferredDevice(), std::nullopt);
    const auto open = combined->open(kernelOne.id, {});
    EXPECT_EQ(kernel->openCount(), 1U);
    EXPECT_EQ(service->openCount(), 0U);
}

TEST_F(CombinedCamerasTest, AServiceThatComesAndGoesWhileRunningIsFollowed)
{
    static_cast<void>(combined->devices());
    for (int round = 0; round < 2; ++round) {
        learn(false);
        ASSERT_THAT(combined->devices(), ElementsAre(kernelOne));
        changes = 0;
        learn(true);
        EXPECT_GE(changes, 1);
        EXPECT_THAT(combined->devices(), ElementsAre(serviceOne));
        EXPECT_EQ(combined->preferredDevice(), serviceOne.id);
        const auto open = combined->open(serviceOne.id, {});
        EXPECT_EQ(service->openCount(), 1U);
        changes = 0;
        learn(false);
        EXPECT_GE(changes, 1);
    }
    changes = 0;
    kernel->plugIn({"three", "Another"});
    EXPECT_EQ(changes, 1);
}

TEST_F(CombinedCamerasTest, AccessIsAskedForAtTheServiceFirst)
{
    std::vector<bool> answers;
    const auto ask = [&] { combined->requestAccess([&](bool isGranted) { answers.push_back(isGranted); }); };
    isThere = false;
    ask();
    service->answerAccess(true);
    EXPECT_THAT(answers, IsEmpty());
    kernel->answerAccess(true);
    EXPECT_THAT(answers, ElementsAre(true));
    ask();
    service->answerAccess(false);
    EXPECT_THAT(answers, ElementsAre(true, false));
    EXPECT_TRUE(kernel->questions.empty());
}

} // namespace
} // namespace nimbrale
