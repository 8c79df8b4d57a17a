// The way of samples and completions to the consumer.

#include "platform/x11/capture/sample_output.h"
#include "tests/fakes/fake_main_queue.h"
#include "tests/fakes/fake_surface.h"

#include <future>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;

class SampleOutputTest : public testing::Test {
protected:
    void open()
    {
        output->open(queue, [this](const CaptureSample& sample) {
            log.push_back("sample");
            last = sample;
        });
    }
    void deliver(std::chrono::nanoseconds time = 1s) { output->deliver(std::make_shared<FakeSurface>(3, 2), time); }
    void complete()
    {
        output->complete([this](const Result<void>& result) { log.push_back(result ? "done" : "failed"); }, {});
    }
    /// Returns when the consumer's queue has done what it was given.
    void drain()
    {
        std::promise<void> done;
        queue.post([&done] { done.set_value(); });
        done.get_future().wait();
    }

    FakeMainQueue mainQueue;
    SerialQueue queue{"test"};
    std::shared_ptr<SampleOutput> output = std::make_shared<SampleOutput>(mainQueue);
    std::vector<std::string> log;
    CaptureSample last;
};

TEST_F(SampleOutputTest, AFrameReachesTheHandlerWithItsTimeAndPostsNothingToTheMainQueue)
{
    open();
    deliver(7s);
    drain();
    EXPECT_EQ(log, std::vector<std::string>{"sample"});
    EXPECT_EQ(last.type, OutputType::screen);
    EXPECT_EQ(last.status, FrameStatus::complete);
    EXPECT_EQ(last.presentationTime, 7s);
    ASSERT_TRUE(last.surface);
    EXPECT_EQ(last.surface->width(), 3);
    EXPECT_EQ(mainQueue.pendingPosts(), 0u);
}

TEST_F(SampleOutputTest, ACompletionComesOnTheMainQueueAfterTheFramesBefore)
{
    output->open(queue, [this](const CaptureSample&) { mainQueue.post([this] { log.push_back("sample"); }); });
    std::promise<void> mayGoOn;
    // The consumer's queue is busy, so that everything has to wait in it.
    queue.post([&mayGoOn] { mayGoOn.get_future().wait(); });
    deliver();
    complete();
    deliver();
    mayGoOn.set_value();
    drain();
    EXPECT_TRUE(log.empty());
    mainQueue.runPosted();
    EXPECT_EQ(log, (std::vector<std::string>{"sample", "done", "sample"}));
}

TEST_F(SampleOutputTest, WithoutAnOutputFramesAreLetGoOfAndCompletionsStillCome)
{
    std::weak_ptr<const Surface> frame;
    {
        std::shared_ptr<const Surface> surface = std::make_shared<FakeSurface>(1, 1);
        frame = surface;
        output->deliver(std::move(surface), 1s);
    }
    EXPECT_TRUE(frame.expired());
    complete();
    mainQueue.runPosted();
    EXPECT_EQ(log, std::vector<std::string>{"done"});
}

TEST_F(SampleOutputTest, NothingReachesTheHandlerOnceItIsClosed)
{
    open();
    std::promise<void> mayGoOn;
    queue.post([&mayGoOn] { mayGoOn.get_future().wait(); });
    deliver();
    output->close();
    mayGoOn.set_value();
    drain();
    deliver();
    drain();
    complete();
    mainQueue.runPosted();
    EXPECT_EQ(log, std::vector<std::string>{"done"});
}

} // namespace
} // namespace nimbrale::x11
