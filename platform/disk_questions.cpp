#include "platform/disk_questions.h"

#include <algorithm>

namespace nimbrale {

namespace {

constexpr std::chrono::milliseconds step{500};

} // namespace

DiskPatience::DiskPatience(MainQueue& mainQueue, std::function<void()> onExhausted)
    : onExhausted_(std::move(onExhausted)), steps_(mainQueue.scheduleRepeating(step, [this] { wait(); }))
{}

void DiskPatience::wait()
{
    waited_ += step;
    if (waited_ < limit)
        return;
    steps_.reset();
    // It may release this object.
    const auto tell = std::exchange(onExhausted_, nullptr);
    tell();
}

void DiskQuestions::waitFor(std::chrono::milliseconds longest) const
{
    const auto end = std::chrono::steady_clock::now() + longest;
    for (const auto& queue : queues_)
        queue->waitWhile([end] { return std::chrono::steady_clock::now() < end; });
}

DiskQueue& DiskQuestions::idleQueue()
{
    const auto idle = std::find_if(queues_.begin(), queues_.end(), [](const auto& queue) { return queue->isDone(); });
    if (idle != queues_.end())
        return **idle;
    queues_.push_back(std::make_unique<DiskQueue>(label_));
    return *queues_.back();
}

} // namespace nimbrale
