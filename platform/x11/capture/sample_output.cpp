#include "platform/x11/capture/sample_output.h"

#include <utility>

namespace nimbrale::x11 {

SampleOutput::SampleOutput(MainQueue& mainQueue, std::function<void()> wake)
    : mainQueue_(mainQueue), wake_(std::move(wake))
{}

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

bool SampleOutput::isFrameInFlight()
{
    if (!isInFlight_)
        return false;
    isWakeWanted_ = true;
    // The frame may have arrived between the two lines above, and then nobody saw the wish.
    return isInFlight_;
}

void SampleOutput::deliver(std::shared_ptr<const Surface> surface)
{
    isInFlight_ = true;
    std::function<void()> handOut = [self = shared_from_this(), surface = std::move(surface)]() mutable {
        CaptureStream::SampleHandler handler;
        {
            const std::lock_guard lock(self->mutex_);
            handler = self->handler_;
        }
        if (!handler)
            return;
        handler({OutputType::screen, FrameStatus::complete, std::move(surface)});
        self->mainQueue_.post([self] {
            self->isInFlight_ = false;
            if (self->isWakeWanted_.exchange(false))
                self->wake_();
        });
    };
    if (!postToOutput(handOut))
        isInFlight_ = false;
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
