#pragma once

#include <functional>
#include <memory>
#include <string>

namespace nimbrale {

/// A thread of its own that runs what is posted to it, in order.
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

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace nimbrale
