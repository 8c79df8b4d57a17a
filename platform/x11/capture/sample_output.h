#pragma once

#include "platform/main_queue.h"
#include "platform/screen_capture.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

namespace nimbrale::x11 {

/// The way of a stream's samples and completions from the capture thread to its consumer. Both go to the consumer's
/// queue, so that they keep their order; the next frame is to be composed only when the main queue has seen the last
/// one.
class SampleOutput : public std::enable_shared_from_this<SampleOutput> {
public:
    /// `wake` lets the capture thread come by. `mainQueue` must outlive the output.
    SampleOutput(MainQueue& mainQueue, std::function<void()> wake);

    // Main thread.
    void open(SerialQueue& queue, CaptureStream::SampleHandler handler);
    /// After it nothing is posted to the output's queue any more, and the handler is not called.
    void close();

    // Capture thread.
    /// Whether the last frame has not reached the main queue yet. When it has, `wake` is called if this was asked.
    [[nodiscard]] bool isFrameInFlight();
    void deliver(std::shared_ptr<const Surface> surface);
    /// Runs `completion` on the main queue, after the frames delivered before, and releases it there.
    void complete(CaptureStream::Completion completion, Result<void> result);

private:
    /// Takes `work` and is true; where there is no output, or none any more, false, and `work` is left as it was.
    [[nodiscard]] bool postToOutput(std::function<void()>& work);

    MainQueue& mainQueue_;
    std::function<void()> wake_;
    /// Recursive, since the output's queue may do on the spot what it is given.
    std::recursive_mutex mutex_;
    SerialQueue* queue_ = nullptr;
    CaptureStream::SampleHandler handler_;
    std::atomic<bool> isInFlight_ = false;
    std::atomic<bool> isWakeWanted_ = false;
};

} // namespace nimbrale::x11
