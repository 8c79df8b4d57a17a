#include "platform/x11/capture/capture_session.h"

#include <algorithm>

namespace nimbrale::x11 {

CaptureSession::CaptureSession(MainQueue& mainQueue, std::function<void()> wake)
    : mainQueue_(mainQueue), wake_(std::move(wake))
{}

void CaptureSession::setOutput(SerialQueue& queue, std::function<void(const CaptureSample&)> handler)
{
    const std::lock_guard lock(outputMutex_);
    queue_ = &queue;
    handler_ = std::move(handler);
}

void CaptureSession::close()
{
    const std::lock_guard lock(outputMutex_);
    queue_ = nullptr;
    handler_ = nullptr;
}

bool CaptureSession::includes(const CapturedWindow& window) const
{
    if (window.needsClassification || (filter.excludesNotifications && window.owner.isNotification))
        return false;
    return std::find(filter.excludedProcesses.begin(), filter.excludedProcesses.end(), window.owner.process) ==
           filter.excludedProcesses.end();
}

bool CaptureSession::isWaitingForOwner()
{
    if (!isInFlight_)
        return false;
    isWakeWanted_ = true;
    // The picture may have arrived between the two lines above, and then nobody saw the wish.
    return isInFlight_;
}

void CaptureSession::deliver(std::shared_ptr<const Surface> surface)
{
    isInFlight_ = true;
    std::function<void()> handOut = [self = shared_from_this(), surface = std::move(surface)]() mutable {
        std::function<void(const CaptureSample&)> handler;
        {
            const std::lock_guard lock(self->outputMutex_);
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

void CaptureSession::complete(CaptureStream::Completion completion, Result<void> result)
{
    // Handed on without a copy, so that no thread but the main one can be the last to let go of the completion.
    std::function<void()> finish = [completion = std::move(completion), result = std::move(result)] {
        completion(result);
    };
    std::function<void()> pass = [self = shared_from_this(), finish = std::move(finish)]() mutable {
        self->mainQueue_.post(std::move(finish));
    };
    // A stream that was let go of delivers no pictures any more, but still answers.
    if (!postToOutput(pass))
        pass();
}

bool CaptureSession::postToOutput(std::function<void()>& work)
{
    const std::lock_guard lock(outputMutex_);
    if (!queue_)
        return false;
    queue_->runOrPost(std::move(work));
    return true;
}

} // namespace nimbrale::x11
