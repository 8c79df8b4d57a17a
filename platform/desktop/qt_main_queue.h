#pragma once

#include "platform/main_queue.h"

#include <QObject>

#include <deque>
#include <mutex>

namespace nimbrale {

/// The main queue on the toolkit's event loop. Made and destroyed on the main thread, while the application object
/// exists; what was posted and did not run by then is dropped.
class QtMainQueue final : public MainQueue {
public:
    QtMainQueue() = default;
    ~QtMainQueue() override;
    QtMainQueue(const QtMainQueue&) = delete;
    QtMainQueue& operator=(const QtMainQueue&) = delete;

    [[nodiscard]] std::chrono::nanoseconds now() const override;
    void post(std::function<void()> work) override;
    void postAfter(std::chrono::nanoseconds delay, std::function<void()> work) override;
    [[nodiscard]] std::unique_ptr<Timer> schedule(std::chrono::nanoseconds delay, std::function<void()> work) override;
    [[nodiscard]] std::unique_ptr<Timer> scheduleRepeating(std::chrono::nanoseconds interval,
                                                           std::function<void()> work) override;

    /// Lets go of all work that waits, for good: from now on nothing runs any more. What the main thread posts is
    /// released at once; what other threads post goes with the queue, so that it too is released on the main thread.
    /// For the end of the application, while there still is what the work refers to. Timers stay with their holders.
    /// Main thread only, not from the queue's own work.
    void dropPending();

private:
    /// Keeps the work itself and uses the toolkit's events only to be woken: the toolkit lets a posting thread hold on
    /// to what it posts for a moment longer than the main thread needs for it.
    class Receiver final : public QObject {
    public:
        void post(std::function<void()> work);
        void dropPending();

    protected:
        void customEvent(QEvent* event) override;

    private:
        /// What is to run next; null when nothing is.
        [[nodiscard]] std::function<void()> next();
        [[nodiscard]] std::deque<std::function<void()>> takeAllAndEnd();

        std::mutex mutex_;
        std::deque<std::function<void()>> work_;
        bool isWakePosted_ = false;
        bool isEnded_ = false;
    };

    Receiver receiver_;
    /// Owns the timers of delayed work; null once pending work was dropped.
    std::unique_ptr<QObject> delays_ = std::make_unique<QObject>();
};

} // namespace nimbrale
