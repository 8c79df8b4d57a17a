#include "platform/serial_queue.h"

#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

namespace nimbrale {
namespace {

/// Keeps the queue's thread from going on until it is let.
class Gate {
public:
    void wait() { opened_.wait(); }
    void open() { promise_.set_value(); }

private:
    std::promise<void> promise_;
    std::shared_future<void> opened_ = promise_.get_future().share();
};

/// Returns when all that was posted before is done.
void drain(SerialQueue& queue)
{
    std::promise<void> done;
    queue.post([&] { done.set_value(); });
    done.get_future().wait();
}

TEST(SerialQueueTest, RunsWhatIsPostedInOrderOnAThreadOfItsOwn)
{
    SerialQueue queue("Nimbrale.test");
    std::vector<int> order;
    std::thread::id thread;
    for (int index = 0; index < 100; ++index)
        queue.post([&, index] {
            order.push_back(index);
            thread = std::this_thread::get_id();
        });
    drain(queue);
    ASSERT_EQ(order.size(), 100U);
    for (int index = 0; index < 100; ++index)
        EXPECT_EQ(order[std::size_t(index)], index);
    EXPECT_NE(thread, std::this_thread::get_id());
}

TEST(SerialQueueTest, WorkForAnIdleQueueIsDoneOnTheSpot)
{
    SerialQueue queue("Nimbrale.test");
    drain(queue);
    std::thread::id thread;
    // The queue's thread may not have ended the work before: it is given time to rest between the tries.
    for (int tries = 0; tries < 1000 && thread != std::this_thread::get_id(); ++tries) {
        queue.runOrPost([&] { thread = std::this_thread::get_id(); });
        drain(queue);
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    }
    EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST(SerialQueueTest, WorkForABusyQueueWaitsForItsTurn)
{
    SerialQueue queue("Nimbrale.test");
    Gate gate;
    std::vector<int> order;
    queue.post([&] { gate.wait(); });
    queue.post([&] { order.push_back(1); });
    queue.runOrPost([&] { order.push_back(2); });
    EXPECT_TRUE(order.empty());
    gate.open();
    drain(queue);
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(SerialQueueTest, WhatIsPostedDuringWorkOnTheSpotComesAfterIt)
{
    SerialQueue queue("Nimbrale.test");
    for (int round = 0; round < 200; ++round) {
        std::vector<int> order;
        queue.runOrPost([&] {
            queue.post([&] { order.push_back(2); });
            queue.runOrPost([&] { order.push_back(3); });
            order.push_back(1);
        });
        drain(queue);
        drain(queue); // What the work posted may have come after the first.
        ASSERT_EQ(order, (std::vector<int>{1, 2, 3}));
    }
}

TEST(SerialQueueTest, TwoThreadsNeverWorkAtOnce)
{
    SerialQueue queue("Nimbrale.test");
    int unguarded = 0;
    const auto add = [&] {
        for (int index = 0; index < 5000; ++index)
            queue.runOrPost([&] { ++unguarded; });
    };
    std::thread other(add);
    add();
    other.join();
    drain(queue);
    EXPECT_EQ(unguarded, 10000);
}

TEST(SerialQueueTest, TheEndWaitsForAllThatWasPosted)
{
    int done = 0;
    {
        SerialQueue queue("Nimbrale.test");
        for (int index = 0; index < 50; ++index)
            queue.post([&] { ++done; });
    }
    EXPECT_EQ(done, 50);
}

} // namespace
} // namespace nimbrale
