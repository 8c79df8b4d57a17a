#pragma once

#include "platform/main_queue.h"
#include "platform/screen_capture.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

namespace nimbrale::x11 {

/// The way of a stream's samples and completions from the capture thread to its consumer. Both go to the consumer's
/// queue, so that they keep their order.
class SampleOutput : public std::enable_shared_from_this<SampleOutput> {
public:
    /// `mainQueue` must outlive the output.
    explicit SampleOutput(MainQueue& mainQueue) : mainQueue_(mainQueue) {}

    // Main thread.
    void open(SerialQueue& queue, CaptureStream::SampleHandler handler);
    /// After it nothing is posted to the output's queue any more, and the handler is not called.
    void close();

    // Capture thread.
    void deliver(std::shared_ptr<const Surface> surface, std::chrono::nanoseconds presentationTime);
    /// Runs `completion` on the main queue, after the frames delivered before, and releases it there.
    void complete(CaptureStream::Completion completion, Result<void> result);

private:
    /// Takes `work` and is true; where there is no output, or none any more, false, and `work` is left as it was.
    [[nodiscard]] bool postToOutput(std::function<void()>& work);

    MainQueue& mainQueue_;
    /// Recursive, since the output's queue may do on the spot what it is given.
    std::recursive_mutex mutex_;
    SerialQueue* queue_ = nullptr;
    CaptureStream::SampleHandler handler_;
};

} // namespace nimbrale::x11
