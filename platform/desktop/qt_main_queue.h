#pragma once

#include "platform/main_queue.h"

#include <QObject>

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
    QObject receiver_;
};

} // namespace nimbrale
