#pragma once

#include "platform/main_queue.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace nimbrale {

/// A main queue on a manual clock: nothing runs before the test says so. Timers that are due at the same moment run in
/// the order in which they were scheduled.
class FakeMainQueue final : public MainQueue {
public:
    [[nodiscard]] std::chrono::nanoseconds now() const override { return now_; }
    void post(std::function<void()> work) override
    {
        const std::lock_guard lock(mutex_);
        posted_.push_back(std::move(work));
    }

    void postAfter(std::chrono::nanoseconds delay, std::function<void()> work) override
    {
        add(delay, std::chrono::nanoseconds::zero(), std::move(work));
    }

    [[nodiscard]] std::unique_ptr<Timer> schedule(std::chrono::nanoseconds delay, std::function<void()> work) override
    {
        return std::make_unique<Handle>(add(delay, std::chrono::nanoseconds::zero(), std::move(work)));
    }

    [[nodiscard]] std::unique_ptr<Timer> scheduleRepeating(std::chrono::nanoseconds interval,
                                                           std::function<void()> work) override
    {
        return std::make_unique<Handle>(add(interval, interval, std::move(work)));
    }

    /// Runs what was posted, and what that posts, until nothing is left.
    void runPosted()
    {
        while (auto work = takePosted())
            work();
    }

    /// Lets `duration` pass: everything that falls due in it runs at its own moment.
    void advance(std::chrono::nanoseconds duration)
    {
        runPosted();
        const std::chrono::nanoseconds end = now_ + duration;
        while (const std::shared_ptr<Entry> entry = takeDue(end)) {
            now_ = entry->due;
            const std::function<void()> work = entry->work; // The call may cancel its own timer.
            work();
            runPosted();
        }
        now_ = end;
    }

    /// Calls that were posted and have not run.
    [[nodiscard]] std::size_t pendingPosts()
    {
        const std::lock_guard lock(mutex_);
        return posted_.size();
    }
    /// Calls that wait for their moment.
    [[nodiscard]] std::size_t pendingTimers() const { return timers_.size(); }

private:
    struct Entry {
        std::chrono::nanoseconds due;
        std::chrono::nanoseconds interval; // Zero for a single call.
        std::uint64_t sequence = 0;
        std::function<void()> work;
    };

    using Entries = std::vector<std::shared_ptr<Entry>>;

    class Handle final : public Timer {
    public:
        explicit Handle(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
        ~Handle() override { cancel_(); }
        Handle(const Handle&) = delete;
        Handle& operator=(const Handle&) = delete;

    private:
        std::function<void()> cancel_;
    };

    std::function<void()> add(std::chrono::nanoseconds delay, std::chrono::nanoseconds interval,
                              std::function<void()> work)
    {
        auto entry = std::make_shared<Entry>(Entry{now_ + delay, interval, ++sequence_, std::move(work)});
        timers_.push_back(entry);
        // A timer may outlive the queue at the end of a test.
        return [list = std::weak_ptr<Entries>(timersOwner_), weak = std::weak_ptr<Entry>(entry)] {
            if (const auto timers = list.lock())
                std::erase(*timers, weak.lock());
        };
    }

    std::function<void()> takePosted()
    {
        const std::lock_guard lock(mutex_);
        if (posted_.empty())
            return nullptr;
        std::function<void()> work = std::move(posted_.front());
        posted_.pop_front();
        return work;
    }

    std::shared_ptr<Entry> takeDue(std::chrono::nanoseconds end)
    {
        const auto earliest = std::min_element(timers_.begin(), timers_.end(), [](const auto& left, const auto& right) {
            return std::pair(left->due, left->sequence) < std::pair(right->due, right->sequence);
        });
        if (earliest == timers_.end() || (*earliest)->due > end)
            return nullptr;
        const std::shared_ptr<Entry> entry = *earliest;
        if (entry->interval == std::chrono::nanoseconds::zero()) {
            timers_.erase(earliest);
            return entry;
        }
        const auto run = std::make_shared<Entry>(*entry);
        entry->due += entry->interval;
        entry->sequence = ++sequence_;
        return run;
    }

    std::mutex mutex_;
    std::deque<std::function<void()>> posted_;
    std::shared_ptr<Entries> timersOwner_ = std::make_shared<Entries>();
    Entries& timers_ = *timersOwner_;
    std::chrono::nanoseconds now_{0};
    std::uint64_t sequence_ = 0;
};

} // namespace nimbrale
