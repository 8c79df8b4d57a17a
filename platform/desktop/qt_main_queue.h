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
    void post(std::function<void()> work) override;
    void postAfter(std::chrono::nanoseconds delay, std::function<void()> work) override;
    [[nodiscard]] std::unique_ptr<Timer> schedule(std::chrono::nanoseconds delay, std::function<void()> work) override;
    [[nodiscard]] std::unique_ptr<Timer> scheduleRepeating(std::chrono::nanoseconds interval,
                                                           std::function<void()> work) override;

private:
    /// Keeps the work itself and uses the toolkit's events only to be woken: the toolkit lets a posting thread hold on
    /// to what it posts for a moment longer than the main thread needs for it.
    class Receiver final : public QObject {
    public:
        void post(std::function<void()> work);

    protected:
        void customEvent(QEvent* event) override;

    private:
        [[nodiscard]] std::function<void()> next();

        std::mutex mutex_;
        std::deque<std::function<void()>> work_;
        bool isWakePosted_ = false;
    };

    Receiver receiver_;
};

} // namespace nimbrale
