// The way of samples and completions to the consumer.

#include "platform/x11/capture/sample_output.h"
#include "tests/fakes/fake_main_queue.h"
#include "tests/fakes/fake_surface.h"

#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <utility>
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
    void deliver(std::chrono::nanoseconds time = 1s, HandOut handOut = HandOut::atOnce)
    {
        output->deliver(std::make_shared<FakeSurface>(3, 2), time, handOut);
    }
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
        output->deliver(std::move(surface), 1s, HandOut::atOnce);
    }
    EXPECT_TRUE(frame.expired());
    complete();
    mainQueue.runPosted();
    EXPECT_EQ(log, std::vector<std::string>{"done"});
}

TEST_F(SampleOutputTest, WhatIsPostedIsNeverDoneOnTheThreadThatDelivers)
{
    std::vector<std::thread::id> threads;
    output->open(queue, [&threads](const CaptureSample&) { threads.push_back(std::this_thread::get_id()); });
    deliver(1s, HandOut::atOnce);
    deliver(2s, HandOut::posted);
    drain();
    ASSERT_EQ(threads.size(), 2u);
    EXPECT_EQ(threads[0], std::this_thread::get_id()) << "the control";
    EXPECT_NE(threads[1], std::this_thread::get_id());
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

/// Where the handler runs: on the thread that delivers, while the consumer's queue has nothing to do, or on the
/// queue's, which is busy or wanted.
enum class Place { onTheSpot, onTheBusyQueue, onTheQueue };

/// What the consumer does in its calls, while other threads use the output.
class SampleOutputCallTest : public SampleOutputTest, public testing::WithParamInterface<Place> {
protected:
    /// Delivers one picture and returns when the handler is done with it.
    void deliverOne(std::shared_ptr<const Surface> surface = std::make_shared<FakeSurface>(1, 1))
    {
        std::promise<void> mayGoOn;
        if (GetParam() == Place::onTheBusyQueue)
            queue.post([&mayGoOn] { mayGoOn.get_future().wait(); });
        output->deliver(std::move(surface), 1s, GetParam() == Place::onTheQueue ? HandOut::posted : HandOut::atOnce);
        mayGoOn.set_value();
        drain();
    }
    /// Whether another thread can use the output now.
    [[nodiscard]] bool canOtherThreadsUseIt()
    {
        std::promise<void> done;
        std::future<void> isDone = done.get_future();
        others.emplace_back([this, done = std::move(done)]() mutable {
            output->complete([](const Result<void>&) {}, {});
            done.set_value();
        });
        return isDone.wait_for(1s) == std::future_status::ready;
    }
    void TearDown() override
    {
        for (std::thread& other : others)
            other.join();
    }

    std::vector<std::thread> others;

    /// Tells, when it goes, whether other threads could use the output then.
    class Probe {
    public:
        Probe(SampleOutputCallTest& test, bool& canBeUsed) : test_(test), canBeUsed_(canBeUsed) {}
        ~Probe() { canBeUsed_ = test_.canOtherThreadsUseIt(); }
        Probe(const Probe&) = delete;
        Probe& operator=(const Probe&) = delete;

    private:
        SampleOutputCallTest& test_;
        bool& canBeUsed_;
    };
};

TEST_P(SampleOutputCallTest, NoLockIsHeldWhileTheHandlerRuns)
{
    bool canBeUsed = false;
    output->open(queue, [&](const CaptureSample&) { canBeUsed = canOtherThreadsUseIt(); });
    deliverOne();
    EXPECT_TRUE(canBeUsed);
}

TEST_P(SampleOutputCallTest, NoLockIsHeldWhileAPictureIsReleased)
{
    bool canBeUsed = false;
    auto probe = std::make_shared<Probe>(*this, canBeUsed);
    auto surface = std::make_shared<FakeSurface>(1, 1);
    const Surface* const raw = surface.get();
    std::shared_ptr<const Surface> probed(
        raw, [surface = std::move(surface), probe = std::move(probe)](const Surface*) mutable { probe.reset(); });
    output->open(queue, [](const CaptureSample&) {});
    deliverOne(std::move(probed));
    EXPECT_TRUE(canBeUsed);
}

TEST_P(SampleOutputCallTest, NoLockIsHeldWhileAHandlerIsReleased)
{
    bool canBeUsed = false;
    output->open(queue, [probe = std::make_shared<Probe>(*this, canBeUsed)](const CaptureSample&) {});
    deliverOne();
    EXPECT_FALSE(canBeUsed);
    output->close();
    EXPECT_TRUE(canBeUsed);
}

TEST_P(SampleOutputCallTest, CloseReturnsWhenTheHandlerIsDone)
{
    std::promise<void> hasBegun;
    std::atomic<bool> isOver = false;
    output->open(queue, [&](const CaptureSample&) {
        hasBegun.set_value();
        std::this_thread::sleep_for(50ms);
        isOver = true;
    });
    std::thread delivering([this] { deliverOne(); });
    hasBegun.get_future().wait();
    output->close();
    EXPECT_TRUE(isOver);
    delivering.join();
}

TEST_P(SampleOutputCallTest, AHandlerMayCloseItsOutput)
{
    auto token = std::make_shared<int>();
    const std::weak_ptr<int> handler = token;
    output->open(queue, [this, token = std::move(token)](const CaptureSample&) {
        output->close();
        log.push_back(token.use_count() > 0 ? "sample" : "gone");
    });
    deliverOne();
    EXPECT_TRUE(handler.expired());
    deliverOne();
    EXPECT_EQ(log, std::vector<std::string>{"sample"});
}

TEST_P(SampleOutputCallTest, AHandlerMayOpenItsOutputAnewAndComplete)
{
    output->open(queue, [this](const CaptureSample&) {
        log.push_back("first");
        output->open(queue, [this](const CaptureSample&) { log.push_back("second"); });
        complete();
        deliver();
    });
    deliverOne();
    drain();
    mainQueue.runPosted();
    EXPECT_EQ(log, (std::vector<std::string>{"first", "second", "done"}));
}

std::string nameOf(const testing::TestParamInfo<Place>& place)
{
    if (place.param == Place::onTheQueue)
        return "OnTheQueue";
    return place.param == Place::onTheSpot ? "OnTheSpot" : "OnTheBusyQueue";
}

INSTANTIATE_TEST_SUITE_P(Places, SampleOutputCallTest,
                         testing::Values(Place::onTheSpot, Place::onTheBusyQueue, Place::onTheQueue), nameOf);

TEST_F(SampleOutputTest, EverybodyAtOnce)
{
    std::atomic<int> samples = 0;
    std::atomic<int> asked = 0;
    std::atomic<int> completed = 0;
    const auto answer = [&] {
        ++asked;
        output->complete([&completed](const Result<void>&) { ++completed; }, {});
    };
    const auto reopen = [&] {
        output->open(queue, [&](const CaptureSample&) {
            const int number = ++samples;
            if (number % 3 == 0)
                answer();
            if (number % 7 == 0)
                output->close();
        });
    };
    std::atomic<bool> isOver = false;
    std::thread capture([&] {
        while (!isOver) {
            deliver();
            answer();
        }
    });
    std::thread other([&] {
        for (int round = 0; !isOver; ++round) {
            answer();
            if (round % 5 == 0)
                output->close();
        }
    });
    while (samples < 300) {
        reopen();
        std::this_thread::yield();
    }
    output->close();
    const int atTheEnd = samples;
    // The capture's thread goes on, and reaches nobody.
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(samples, atTheEnd);
    isOver = true;
    capture.join();
    other.join();
    drain();
    mainQueue.runPosted();
    EXPECT_EQ(completed, asked);
}

} // namespace
} // namespace nimbrale::x11
