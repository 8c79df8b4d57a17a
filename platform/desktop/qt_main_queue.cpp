#include "platform/desktop/qt_main_queue.h"

#include <QTimer>

#include <utility>

namespace nimbrale {

namespace {

enum class Repetition { once, forever };

/// The toolkit's timers count whole milliseconds; rounding up never fires early.
std::chrono::milliseconds wholeMilliseconds(std::chrono::nanoseconds duration)
{
    return std::chrono::ceil<std::chrono::milliseconds>(duration);
}

class QtTimer final : public Timer {
public:
    QtTimer(std::chrono::nanoseconds interval, Repetition repetition, std::function<void()> work)
    {
        timer_.setTimerType(Qt::PreciseTimer);
        timer_.setSingleShot(repetition == Repetition::once);
        // The work may destroy this timer, and itself with it: it is kept alive for as long as it runs.
        QObject::connect(&timer_, &QTimer::timeout, [work = std::make_shared<std::function<void()>>(std::move(work))] {
            const std::shared_ptr<std::function<void()>> alive(
                work); // NOLINT(performance-unnecessary-copy-initialization)
            (*alive)();
        });
        timer_.start(wholeMilliseconds(interval));
    }

private:
    QTimer timer_;
};

} // namespace

void QtMainQueue::post(std::function<void()> work)
{
    // The toolkit lets the posting thread hold on to the functor for a moment longer than the call takes, so that the
    // work is taken out of it here and ends on the main thread.
    QMetaObject::invokeMethod(
        &receiver_, [work = std::move(work)]() mutable { std::exchange(work, nullptr)(); }, Qt::QueuedConnection);
}

void QtMainQueue::postAfter(std::chrono::nanoseconds delay, std::function<void()> work)
{
    QTimer::singleShot(wholeMilliseconds(delay), Qt::PreciseTimer, &receiver_, std::move(work));
}

std::unique_ptr<Timer> QtMainQueue::schedule(std::chrono::nanoseconds delay, std::function<void()> work)
{
    return std::make_unique<QtTimer>(delay, Repetition::once, std::move(work));
}

std::unique_ptr<Timer> QtMainQueue::scheduleRepeating(std::chrono::nanoseconds interval, std::function<void()> work)
{
    return std::make_unique<QtTimer>(interval, Repetition::forever, std::move(work));
}

} // namespace nimbrale
