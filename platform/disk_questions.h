#pragma once

#include "platform/disk_queue.h"
#include "platform/main_queue.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale {

/// Waits for a disk that somebody else asks, and tells when it has not answered for ten seconds: local disks wake up
/// within that, and connections over a network that come back do so too. A time in which the whole process stood still
/// hardly counts. Main thread only.
class DiskPatience {
public:
    static constexpr std::chrono::seconds limit{10};

    /// `onExhausted` is called once, and may release this object.
    DiskPatience(MainQueue& mainQueue, std::function<void()> onExhausted);
    DiskPatience(const DiskPatience&) = delete;
    DiskPatience& operator=(const DiskPatience&) = delete;

private:
    void wait();

    std::function<void()> onExhausted_;
    std::chrono::milliseconds waited_{0};
    std::unique_ptr<Timer> steps_;
};

/// One's questions to disks, which are asked on other threads since a disk may not answer for as long as it likes. Main
/// thread only.
class DiskQuestions {
public:
    /// As long as it lives the answer is awaited. Does not wait for the disk when it goes.
    using Asked = std::shared_ptr<void>;

    /// `mainQueue` must outlive what is asked. `label` names the threads.
    DiskQuestions(MainQueue& mainQueue, std::string label) : mainQueue_(mainQueue), label_(std::move(label)) {}

    /// `question` runs on another thread, and owns what it touches. `then` gets the answer on the main queue, later,
    /// and may release what this returns. An answer that nobody waits for goes on either thread.
    template <typename Answer>
    [[nodiscard]] Asked ask(std::function<Answer()> question, std::function<void(Answer answer)> then)
    {
        auto waiting = std::make_shared<Waiting<Answer>>();
        waiting->mainQueue = &mainQueue_;
        waiting->then = std::move(then);
        idleQueue().post([waiting, question = std::move(question)] { answer(waiting, question()); });
        return {waiting.get(), [waiting](void*) { waiting->giveUp(); }};
    }

    /// Waits until all that was asked has its answer, for `longest` at most.
    void waitFor(std::chrono::milliseconds longest) const;

private:
    /// Shared by the one who asks and the thread.
    template <typename Answer>
    struct Waiting {
        std::mutex mutex;
        /// Null when nobody waits any more. The queue may be gone then.
        MainQueue* mainQueue = nullptr;
        /// The main thread's.
        std::function<void(Answer answer)> then;

        void giveUp()
        {
            const auto unheard = std::exchange(then, nullptr);
            const std::lock_guard lock(mutex);
            mainQueue = nullptr;
        }
    };

    template <typename Answer>
    static void answer(const std::shared_ptr<Waiting<Answer>>& waiting, Answer given)
    {
        const auto answer = std::make_shared<Answer>(std::move(given));
        const std::lock_guard lock(waiting->mutex);
        if (waiting->mainQueue == nullptr)
            return;
        waiting->mainQueue->post([waiting, answer] {
            if (const auto then = std::exchange(waiting->then, nullptr))
                then(std::move(*answer));
        });
    }

    /// One that nothing holds up.
    DiskQueue& idleQueue();

    MainQueue& mainQueue_;
    std::string label_;
    std::vector<std::unique_ptr<DiskQueue>> queues_;
};

} // namespace nimbrale
