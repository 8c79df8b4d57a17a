#pragma once

#include "platform/main_queue.h"
#include "platform/screen_capture.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace nimbrale::x11 {

/// How a picture gets to its consumer.
enum class HandOut {
    atOnce, ///< on the capture thread where the consumer's queue has nothing to do
    posted  ///< on the consumer's queue's own thread alone, since the consumer takes its time
};

/// The way of a stream's samples and completions from the capture thread to its consumer. Both go to the consumer's
/// queue, so that they keep their order. Whatever the consumer does when it is called, and whatever goes when a sample
/// or the handler is released, it may use the output: no lock is held meanwhile.
class SampleOutput : public std::enable_shared_from_this<SampleOutput> {
public:
    /// `mainQueue` must outlive the output.
    explicit SampleOutput(MainQueue& mainQueue) : mainQueue_(mainQueue) {}

    // Main thread, or in the handler; from two threads at once only `close`.
    /// `handler` gets the samples on `queue`, from now until `close`; another handler is closed first.
    void open(SerialQueue& queue, CaptureStream::SampleHandler handler);
    /// After it nothing is posted to the output's queue any more, and the handler is not called: where another thread
    /// is doing that, waits for it. The handler itself may close its output.
    void close();

    // Capture thread.
    void deliver(std::shared_ptr<const Surface> surface, std::chrono::nanoseconds presentationTime, HandOut handOut);
    /// Runs `completion` on the main queue, after the frames delivered before, and releases it there.
    void complete(CaptureStream::Completion completion, Result<void> result);

    // The sound's thread.
    /// The handler is never called on this thread, which has to be back for the next piece.
    void deliver(std::shared_ptr<const AudioBuffer> audio, std::chrono::nanoseconds presentationTime);

private:
    struct Consumer {
        SerialQueue& queue;
        CaptureStream::SampleHandler handler;
    };

    /// Calls `call` with the consumer, which stays until then. False without one, and nothing is called.
    bool withConsumer(const std::function<void(const Consumer&)>& call);

    MainQueue& mainQueue_;
    std::mutex mutex_;
    std::shared_ptr<const Consumer> consumer_;
    /// The threads in `withConsumer`, each as often as it is there.
    std::vector<std::thread::id> callers_;
    std::condition_variable callReturned_;
};

} // namespace nimbrale::x11
