#include "platform/x11/capture/work_inbox.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

/// Done once, right before something is read the next time.
std::function<void()> beforeRead;

} // namespace

/// In place of the system library's, so that something can happen in the middle of what calls it.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the library's names are reserved.
extern "C" ssize_t read(int descriptor, void* buffer, std::size_t size)
{
    if (beforeRead)
        std::exchange(beforeRead, nullptr)();
    return syscall(SYS_read, descriptor, buffer, size);
}

namespace nimbrale::x11 {
namespace {

using namespace std::chrono_literals;

bool isReadable(const WorkInbox& inbox)
{
    pollfd descriptor{inbox.descriptor(), POLLIN, 0};
    return poll(&descriptor, 1, 0) == 1;
}

TEST(WorkInboxTest, workComesInTheOrderInWhichItWasPosted)
{
    WorkInbox inbox;
    std::string done;
    inbox.post([&] { done += 'a'; });
    inbox.post([&] { done += 'b'; });
    for (const auto& work : inbox.take())
        work();
    EXPECT_EQ(done, "ab");
    EXPECT_TRUE(inbox.take().empty());
}

TEST(WorkInboxTest, theDescriptorIsReadableFromAPostUntilItIsTaken)
{
    WorkInbox inbox;
    EXPECT_FALSE(isReadable(inbox));
    inbox.post([] {});
    EXPECT_TRUE(isReadable(inbox));
    (void)inbox.take();
    EXPECT_FALSE(isReadable(inbox));
}

TEST(WorkInboxTest, aWakeEndsTheNextWaitOnce)
{
    WorkInbox inbox;
    inbox.wake();
    inbox.wake();
    EXPECT_TRUE(isReadable(inbox));
    EXPECT_TRUE(inbox.take().empty());
    EXPECT_FALSE(isReadable(inbox));
}

TEST(WorkInboxTest, whatIsPostedWhileWorkIsTakenIsNeverLeftLying)
{
    WorkInbox inbox;
    inbox.post([] {});
    beforeRead = [&inbox] { inbox.post([] {}); };
    const std::size_t taken = inbox.take().size();
    ASSERT_FALSE(beforeRead) << "it was posted meanwhile";
    EXPECT_TRUE(taken == 2 || isReadable(inbox)) << "nothing would wake the thread for it";
}

TEST(WorkInboxTest, aThreadThatWaitsWithoutALimitIsEndedByWorkThatComesAtAnyMoment)
{
    for (int round = 0; round < 2000; ++round) {
        WorkInbox inbox;
        bool isEnding = false;
        std::promise<void> ended;
        std::thread thread([&] {
            while (!isEnding) {
                for (const auto& work : inbox.take())
                    work();
                pollfd descriptor{inbox.descriptor(), POLLIN, 0};
                if (!isEnding)
                    poll(&descriptor, 1, -1);
            }
            ended.set_value();
        });
        inbox.wake();
        // A different while each time, so that the work meets every line of the loop.
        for (std::atomic<int> spin = 17 * (round % 400); spin > 0; --spin) {
        }
        inbox.post([&isEnding] { isEnding = true; });
        const bool isOver = ended.get_future().wait_for(3s) == std::future_status::ready;
        EXPECT_TRUE(isOver) << "in round " << round;
        inbox.wake();
        thread.join();
        if (!isOver)
            return;
    }
}

} // namespace
} // namespace nimbrale::x11
