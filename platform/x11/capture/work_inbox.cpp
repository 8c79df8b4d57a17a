#include "platform/x11/capture/work_inbox.h"

#include <cstdint>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace nimbrale::x11 {

WorkInbox::WorkInbox() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void WorkInbox::post(std::function<void()> work)
{
    {
        const std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
    }
    wake();
}

void WorkInbox::wake()
{
    const std::uint64_t one = 1;
    // The only failure is a full counter, and then the thread wakes anyway.
    [[maybe_unused]] const ssize_t written = write(descriptor_.get(), &one, sizeof one);
}

std::vector<std::function<void()>> WorkInbox::take()
{
    // In this order: work that is posted in between is taken at once and wakes the thread once more for nothing, where
    // the other order would leave it lying.
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t taken = read(descriptor_.get(), &count, sizeof count);
    const std::lock_guard lock(mutex_);
    return std::exchange(work_, {});
}

} // namespace nimbrale::x11
