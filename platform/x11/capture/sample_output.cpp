#include "platform/x11/capture/sample_output.h"

#include <utility>

namespace nimbrale::x11 {

void SampleOutput::open(SerialQueue& queue, CaptureStream::SampleHandler handler)
{
    const std::lock_guard lock(mutex_);
    queue_ = &queue;
    handler_ = std::move(handler);
}

void SampleOutput::close()
{
    const std::lock_guard lock(mutex_);
    queue_ = nullptr;
    handler_ = nullptr;
}

void SampleOutput::deliver(std::shared_ptr<const Surface> surface, std::chrono::nanoseconds presentationTime)
{
    std::function<void()> handOut = [self = shared_from_this(), surface = std::move(surface),
                                     presentationTime]() mutable {
        CaptureStream::SampleHandler handler;
        {
            const std::lock_guard lock(self->mutex_);
            handler = self->handler_;
        }
        if (handler)
            handler({OutputType::screen, FrameStatus::complete, std::move(surface), presentationTime});
    };
    // Without an output the frame is let go of here.
    (void)postToOutput(handOut);
}

void SampleOutput::complete(CaptureStream::Completion completion, Result<void> result)
{
    // Handed on without a copy, so that no thread but the main one can be the last to let go of the completion.
    std::function<void()> finish = [completion = std::move(completion), result = std::move(result)] {
        completion(result);
    };
    std::function<void()> pass = [self = shared_from_this(), finish = std::move(finish)]() mutable {
        self->mainQueue_.post(std::move(finish));
    };
    // A stream that was let go of delivers no frames any more, but still answers.
    if (!postToOutput(pass))
        pass();
}

bool SampleOutput::postToOutput(std::function<void()>& work)
{
    const std::lock_guard lock(mutex_);
    if (!queue_)
        return false;
    queue_->runOrPost(std::move(work));
    return true;
}

} // namespace nimbrale::x11
