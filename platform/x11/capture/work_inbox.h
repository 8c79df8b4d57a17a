#pragma once

#include "platform/file_descriptor.h"

#include <functional>
#include <mutex>
#include <vector>

namespace nimbrale::x11 {

/// What other threads give a thread that waits in poll: work to do, or only a reason to look up. Nothing that is given
/// after `take` has begun is lost: the descriptor stays readable for it.
class WorkInbox {
public:
    WorkInbox();
    WorkInbox(const WorkInbox&) = delete;
    WorkInbox& operator=(const WorkInbox&) = delete;

    /// Any thread.
    void post(std::function<void()> work);
    /// Ends the wait, or the next one. Any thread.
    void wake();

    /// Readable from a `post` or `wake` until the next `take`.
    [[nodiscard]] int descriptor() const { return descriptor_.get(); }
    /// The work posted so far, in order. To be called after each wait, before anything is tested that a wake stands
    /// for. The owning thread.
    [[nodiscard]] std::vector<std::function<void()>> take();

private:
    std::mutex mutex_;
    std::vector<std::function<void()>> work_;
    FileDescriptor descriptor_;
};

} // namespace nimbrale::x11
