// Work that waits for something to be known, with patience.

#include "platform/waiting_work.h"

#include "tests/fakes/fake_main_queue.h"

#include <gtest/gtest.h>

namespace nimbrale {
namespace {

using namespace std::chrono_literals;

class WaitingWorkTest : public testing::Test {
protected:
    void add(bool isKnown = false)
    {
        waiting_->add(queue_, isKnown, 3s, [this] { ++done_; });
    }

    FakeMainQueue queue_;
    std::shared_ptr<WaitingWork> waiting_ = std::make_shared<WaitingWork>();
    int done_ = 0;
};

TEST_F(WaitingWorkTest, WhatIsKnownAlreadyIsWorkForLater)
{
    add(true);
    EXPECT_EQ(done_, 0);
    queue_.runPosted();
    EXPECT_EQ(done_, 1);
}

TEST_F(WaitingWorkTest, RunsOnceWhenItIsKnown)
{
    add();
    add();
    waiting_->run();
    EXPECT_EQ(done_, 2);
    waiting_->run();
    queue_.advance(10s);
    EXPECT_EQ(done_, 2);
}

TEST_F(WaitingWorkTest, PatienceEndsWithThatOfTheFirst)
{
    add();
    queue_.advance(2s);
    add();
    queue_.advance(1s - 1ns);
    EXPECT_EQ(done_, 0);
    queue_.advance(1ns);
    EXPECT_EQ(done_, 2);
}

TEST_F(WaitingWorkTest, NothingRunsAfterItsEnd)
{
    add(true);
    add();
    waiting_.reset();
    queue_.advance(10s);
    EXPECT_EQ(done_, 0);
}

} // namespace
} // namespace nimbrale
