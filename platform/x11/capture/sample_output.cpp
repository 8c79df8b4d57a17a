#include "platform/x11/capture/sample_output.h"

#include <algorithm>
#include <utility>

namespace nimbrale::x11 {

void SampleOutput::open(SerialQueue& queue, CaptureStream::SampleHandler handler)
{
    auto consumer = std::make_shared<const Consumer>(Consumer{queue, std::move(handler)});
    close();
    const std::lock_guard lock(mutex_);
    consumer_.swap(consumer);
}

void SampleOutput::close()
{
    // Released after the lock.
    std::shared_ptr<const Consumer> closed;
    std::unique_lock lock(mutex_);
    closed.swap(consumer_);
    callReturned_.wait(lock, [this, self = std::this_thread::get_id()] {
        return std::ranges::all_of(callers_, [self](std::thread::id caller) { return caller == self; });
    });
}

void SampleOutput::deliver(std::shared_ptr<const Surface> surface, std::chrono::nanoseconds presentationTime,
                           HandOut handOut)
{
    std::function<void()> call = [self = shared_from_this(), surface = std::move(surface), presentationTime] {
        self->withConsumer([&](const Consumer& consumer) {
            consumer.handler({OutputType::screen, FrameStatus::complete, surface, presentationTime});
        });
    };
    withConsumer([&call, handOut](const Consumer& consumer) {
        if (handOut == HandOut::atOnce)
            consumer.queue.runOrPost(std::move(call));
        else
            consumer.queue.post(std::move(call));
    });
}

void SampleOutput::deliver(std::shared_ptr<const AudioBuffer> audio, std::chrono::nanoseconds presentationTime)
{
    std::function<void()> handOut = [self = shared_from_this(), audio = std::move(audio), presentationTime] {
        self->withConsumer([&](const Consumer& consumer) {
            consumer.handler({OutputType::audio, std::nullopt, nullptr, presentationTime, audio});
        });
    };
    withConsumer([&handOut](const Consumer& consumer) { consumer.queue.post(std::move(handOut)); });
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
    if (!withConsumer([&pass](const Consumer& consumer) { consumer.queue.runOrPost(std::move(pass)); }))
        pass();
}

bool SampleOutput::withConsumer(const std::function<void(const Consumer&)>& call)
{
    const std::thread::id self = std::this_thread::get_id();
    std::shared_ptr<const Consumer> consumer;
    {
        const std::lock_guard lock(mutex_);
        if (!consumer_)
            return false;
        consumer = consumer_;
        callers_.push_back(self);
    }
    call(*consumer);
    // What the handler owns is gone before somebody who waits for it goes on.
    consumer.reset();
    {
        const std::lock_guard lock(mutex_);
        callers_.erase(std::ranges::find(callers_, self));
    }
    callReturned_.notify_all();
    return true;
}

} // namespace nimbrale::x11
