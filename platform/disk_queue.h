#pragma once

#include <functional>
#include <memory>
#include <string>

namespace nimbrale {

/// Runs what is posted to it one after the other, in order, on a thread of its own, as `SerialQueue` does; but its work
/// may hang, as a call to a disk that does not answer does, and nobody has to wait for it. Where a thread is in such
/// work when the process exits, the process ends without the clean-up of its libraries.
class DiskQueue {
public:
    /// `label` names the thread, cut to the 15 bytes that the system keeps.
    explicit DiskQueue(std::string label);
    /// Leaves work under way to the thread, which does all that was posted and ends by itself: the work owns what it
    /// touches. May run on the queue itself.
    ~DiskQueue();
    DiskQueue(const DiskQueue&) = delete;
    DiskQueue& operator=(const DiskQueue&) = delete;

    /// Any thread.
    void post(std::function<void()> work);
    /// Whether all that was posted is done. Any thread.
    [[nodiscard]] bool isDone() const;
    /// Waits until all that was posted is done, or `isWorthWaiting`, which is asked many times a second, says no. Not
    /// on the queue itself.
    void waitWhile(const std::function<bool()>& isWorthWaiting) const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace nimbrale
