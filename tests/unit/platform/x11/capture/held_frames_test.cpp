// Frames that consumers hold.

#include "platform/x11/capture/held_frames.h"
#include "tests/fakes/fake_surface.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace nimbrale::x11 {
namespace {

class HeldFramesTest : public testing::Test {
protected:
    [[nodiscard]] std::shared_ptr<const Surface> hold() { return frames->count(std::make_shared<FakeSurface>(1, 1)); }

    std::atomic<int> wakes = 0;
    std::shared_ptr<HeldFrames> frames = std::make_shared<HeldFrames>([this] { ++wakes; });
};

TEST_F(HeldFramesTest, AreCountedUntilTheLastHolderLetsGo)
{
    EXPECT_FALSE(frames->areAsManyAs(1));
    auto first = hold();
    auto copy = first;
    EXPECT_TRUE(frames->areAsManyAs(1));
    EXPECT_FALSE(frames->areAsManyAs(2));
    first.reset();
    EXPECT_TRUE(frames->areAsManyAs(1));
    copy.reset();
    EXPECT_FALSE(frames->areAsManyAs(1));
}

TEST_F(HeldFramesTest, TheFrameIsTheSame)
{
    const auto surface = std::make_shared<FakeSurface>(12, 34);
    const auto counted = frames->count(surface);
    EXPECT_EQ(counted.get(), surface.get());
}

TEST_F(HeldFramesTest, WakeOnceAndOnlyWhenItIsWaitedFor)
{
    auto first = hold();
    auto second = hold();
    first.reset();
    EXPECT_EQ(wakes, 0) << "nobody was told to wait";
    first = hold();
    EXPECT_TRUE(frames->areAsManyAs(2));
    first.reset();
    EXPECT_EQ(wakes, 1);
    second.reset();
    EXPECT_EQ(wakes, 1);
    EXPECT_FALSE(frames->areAsManyAs(2));
}

TEST_F(HeldFramesTest, TheFrameIsGoneBeforeTheWake)
{
    std::weak_ptr<const Surface> gone;
    bool wasGone = false;
    frames = std::make_shared<HeldFrames>([&] { wasGone = gone.expired(); });
    std::shared_ptr<const Surface> surface = std::make_shared<FakeSurface>(1, 1);
    gone = surface;
    auto counted = frames->count(std::move(surface));
    EXPECT_TRUE(frames->areAsManyAs(1));
    counted.reset();
    EXPECT_TRUE(wasGone);
}

TEST_F(HeldFramesTest, OutliveTheirCounter)
{
    auto frame = hold();
    EXPECT_TRUE(frames->areAsManyAs(1));
    frames.reset();
    frame.reset();
    EXPECT_EQ(wakes, 1);
}

TEST_F(HeldFramesTest, NoWakeIsLostBetweenThreads)
{
    for (int round = 0; round < 500; ++round) {
        auto frame = hold();
        std::thread consumer([frame = std::move(frame)]() mutable { frame.reset(); });
        const int before = wakes;
        const bool mustWait = frames->areAsManyAs(1);
        consumer.join();
        EXPECT_EQ(wakes - before, mustWait ? 1 : 0);
        EXPECT_FALSE(frames->areAsManyAs(1));
    }
}

} // namespace
} // namespace nimbrale::x11
