#pragma once

#include <functional>
#include <memory>
#include <string>

namespace nimbrale {

/// Runs what is posted to it one after the other, in order, on a thread of its own.
class SerialQueue {
public:
    /// `label` names the queue in logs; the thread's name is the label cut to the 15 bytes that the system keeps.
    explicit SerialQueue(std::string label);
    /// Finishes the work posted so far, then ends the thread. Must not run on the queue itself.
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    [[nodiscard]] const std::string& label() const;
    /// Any thread.
    void post(std::function<void()> work);
    /// Like `post`, but where the queue has nothing to do, the work is done on the calling thread before this returns:
    /// for work so short that a change of threads would cost more. Any thread.
    void runOrPost(std::function<void()> work);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace nimbrale
