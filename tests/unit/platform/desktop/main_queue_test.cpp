#include "platform/desktop/qt_main_queue.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QThread>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;

class MainQueueTest : public testing::Test {
protected:
    /// Runs the event loop until `isDone`, five seconds at most.
    static bool waitFor(const std::function<bool()>& isDone)
    {
        QElapsedTimer timer;
        timer.start();
        while (!isDone() && timer.elapsed() < 5000)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 10);
        return isDone();
    }
    static void runFor(std::chrono::milliseconds duration)
    {
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < duration.count())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }

private:
    int argumentCount_ = 1;
    char name_[5] = "test";
    char* arguments_[2] = {name_, nullptr};
    QCoreApplication application_{argumentCount_, arguments_};
};

TEST_F(MainQueueTest, PostedWorkRunsLaterAndInOrder)
{
    QtMainQueue queue;
    std::vector<int> order;
    queue.post([&] {
        order.push_back(1);
        queue.post([&] { order.push_back(3); });
    });
    queue.post([&] { order.push_back(2); });
    EXPECT_TRUE(order.empty());
    EXPECT_TRUE(waitFor([&] { return order.size() == 3; }));
    EXPECT_EQ(order, (std::vector{1, 2, 3}));
}

TEST_F(MainQueueTest, WorkPostedByAnotherThreadRunsOnTheMainThread)
{
    QtMainQueue queue;
    const std::thread::id mainThread = std::this_thread::get_id();
    std::vector<std::pair<int, std::thread::id>> runs;
    std::thread poster([&] {
        for (int number = 0; number < 100; ++number)
            queue.post([&runs, number] { runs.emplace_back(number, std::this_thread::get_id()); });
    });
    EXPECT_TRUE(waitFor([&] { return runs.size() == 100; }));
    poster.join();
    for (int number = 0; number < 100; ++number)
        EXPECT_EQ(runs[static_cast<std::size_t>(number)], std::pair(number, mainThread));
}

TEST_F(MainQueueTest, DelayedWorkWaitsItsTime)
{
    QtMainQueue queue;
    QElapsedTimer timer;
    timer.start();
    qint64 ranAfter = -1;
    queue.postAfter(30ms, [&] { ranAfter = timer.nsecsElapsed(); });
    EXPECT_TRUE(waitFor([&] { return ranAfter >= 0; }));
    EXPECT_GE(ranAfter, 29'000'000);
}

TEST_F(MainQueueTest, FractionsOfAMillisecondAreRoundedUp)
{
    QtMainQueue queue;
    int runs = 0;
    const auto timer = queue.scheduleRepeating(100us, [&] { ++runs; });
    QElapsedTimer clock;
    clock.start();
    EXPECT_TRUE(waitFor([&] { return runs == 20; }));
    EXPECT_GE(clock.elapsed(), 18);
}

TEST_F(MainQueueTest, TimerThatGoesIsCancelled)
{
    QtMainQueue queue;
    int runs = 0;
    auto timer = queue.schedule(10ms, [&] { ++runs; });
    timer.reset();
    runFor(40ms);
    EXPECT_EQ(runs, 0);
}

TEST_F(MainQueueTest, SingleTimerRunsOnce)
{
    QtMainQueue queue;
    int runs = 0;
    const auto timer = queue.schedule(1ms, [&] { ++runs; });
    runFor(40ms);
    EXPECT_EQ(runs, 1);
}

TEST_F(MainQueueTest, TimerMayBeDestroyedInItsOwnCall)
{
    QtMainQueue queue;
    std::unique_ptr<Timer> timer;
    auto witness = std::make_shared<int>(0);
    timer = queue.scheduleRepeating(1ms, [&timer, witness] {
        timer.reset();
        ++*witness; // What the call owns must still be there.
    });
    EXPECT_TRUE(waitFor([&] { return *witness > 0; }));
    runFor(20ms);
    EXPECT_EQ(*witness, 1);
    EXPECT_EQ(witness.use_count(), 1);
}

TEST_F(MainQueueTest, WorkWithAnEventLoopOfItsOwnHoldsUpNothing)
{
    QtMainQueue queue;
    std::vector<int> order;
    queue.post([&] {
        order.push_back(1);
        QEventLoop loop;
        queue.post([&] {
            order.push_back(3);
            loop.quit();
        });
        loop.exec();
        order.push_back(4);
    });
    queue.post([&] { order.push_back(2); });
    QCoreApplication::processEvents();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
}

TEST_F(MainQueueTest, WorkThatDidNotRunIsDroppedWithTheQueue)
{
    auto witness = std::make_shared<int>(0);
    {
        QtMainQueue queue;
        queue.post([witness] { ++*witness; });
        queue.postAfter(1ms, [witness] { ++*witness; });
    }
    runFor(20ms);
    EXPECT_EQ(*witness, 0);
    EXPECT_EQ(witness.use_count(), 1);
}

/// Posts once more when it is released, as a part of the window system does that has something to put away.
class PostsWhenReleased {
public:
    PostsWhenReleased(MainQueue& queue, int& releases, std::function<void()> work)
        : queue_(queue), releases_(releases), work_(std::move(work))
    {}
    ~PostsWhenReleased()
    {
        ++releases_;
        queue_.post(work_);
        queue_.postAfter(std::chrono::milliseconds(1), work_);
    }
    PostsWhenReleased(const PostsWhenReleased&) = delete;
    PostsWhenReleased& operator=(const PostsWhenReleased&) = delete;

private:
    MainQueue& queue_;
    int& releases_;
    std::function<void()> work_;
};

TEST_F(MainQueueTest, DroppedWorkIsReleasedAtOnceAndMayPostMeanwhile)
{
    QtMainQueue queue;
    int runs = 0;
    int releases = 0;
    for (int number = 0; number < 3; ++number) {
        const auto owned = std::make_shared<PostsWhenReleased>(queue, releases, [&runs] { ++runs; });
        queue.post([owned, &runs] { ++runs; });
    }
    const auto nested = std::make_shared<PostsWhenReleased>(queue, releases, [&runs] { ++runs; });
    auto outer = std::make_shared<PostsWhenReleased>(queue, releases, [nested, &runs] { ++runs; });
    queue.post([outer = std::move(outer), &runs] { ++runs; });
    queue.dropPending();
    EXPECT_EQ(releases, 4) << "the one that this test holds is left";
    EXPECT_EQ(nested.use_count(), 1);
    runFor(20ms);
    EXPECT_EQ(runs, 0);
}

TEST_F(MainQueueTest, DroppedDelayedWorkIsReleasedAtOnceAndMayAskForAnotherDelay)
{
    QtMainQueue queue;
    int runs = 0;
    int releases = 0;
    auto owned = std::make_shared<PostsWhenReleased>(queue, releases, [&runs] { ++runs; });
    queue.postAfter(1ms, [owned = std::move(owned), &runs] { ++runs; });
    queue.dropPending();
    EXPECT_EQ(releases, 1);
    runFor(20ms);
    EXPECT_EQ(runs, 0);
}

TEST_F(MainQueueTest, WorkPostedAfterTheDropIsReleasedAtOnceAndNeverRuns)
{
    QtMainQueue queue;
    queue.dropPending();
    const auto witness = std::make_shared<int>(0);
    queue.post([witness] { ++*witness; });
    queue.postAfter(0ms, [witness] { ++*witness; });
    EXPECT_EQ(witness.use_count(), 1);
    runFor(20ms);
    EXPECT_EQ(*witness, 0);
}

TEST_F(MainQueueTest, WhatAnotherThreadPostsAfterTheDropGoesWithTheQueueOnTheMainThread)
{
    int runs = 0;
    std::thread::id releasedOn;
    {
        QtMainQueue queue;
        queue.post([&runs] { ++runs; }); // Its wake is still to come when it is dropped.
        queue.dropPending();
        std::shared_ptr<void> witness(nullptr, [&releasedOn](void*) { releasedOn = std::this_thread::get_id(); });
        std::thread([&queue, &runs, witness = std::move(witness)]() mutable {
            queue.post([&runs, witness = std::move(witness)] { ++runs; });
        }).join();
        runFor(20ms);
        EXPECT_EQ(releasedOn, std::thread::id());
    }
    EXPECT_EQ(releasedOn, std::this_thread::get_id());
    EXPECT_EQ(runs, 0);
}

TEST_F(MainQueueTest, WorkReleasedWithTheQueueMayPost)
{
    int runs = 0;
    int releases = 0;
    {
        QtMainQueue queue;
        for (int number = 0; number < 3; ++number) {
            const auto owned = std::make_shared<PostsWhenReleased>(queue, releases, [&runs] { ++runs; });
            queue.post([owned] {});
        }
    }
    EXPECT_EQ(releases, 3);
    EXPECT_EQ(runs, 0);
}

} // namespace
} // namespace nimbrale
