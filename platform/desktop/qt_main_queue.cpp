#include "platform/desktop/qt_main_queue.h"

#include <QCoreApplication>
#include <QEvent>
#include <QThread>
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
            // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
            const std::shared_ptr<std::function<void()>> alive(work);
            (*alive)();
        });
        timer_.start(wholeMilliseconds(interval));
    }

private:
    QTimer timer_;
};

} // namespace

QtMainQueue::~QtMainQueue()
{
    dropPending();
}

void QtMainQueue::dropPending()
{
    receiver_.dropPending();
    // Taken away first, since what is released may ask for another delay.
    const std::unique_ptr<QObject> dropped = std::move(delays_);
}

std::chrono::nanoseconds QtMainQueue::now() const
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

void QtMainQueue::post(std::function<void()> work)
{
    receiver_.post(std::move(work));
}

void QtMainQueue::Receiver::post(std::function<void()> work)
{
    bool isWakeDue = false;
    {
        const std::lock_guard lock(mutex_);
        if (isEnded_ && QThread::currentThread() == thread())
            return; // The work goes with the parameter, after the lock: releasing it may post.
        work_.push_back(std::move(work));
        isWakeDue = !isEnded_ && !std::exchange(isWakePosted_, true);
    }
    // After the lock, or the main thread would be woken only to wait for it.
    if (isWakeDue)
        QCoreApplication::postEvent(this, new QEvent(QEvent::User));
}

void QtMainQueue::Receiver::dropPending()
{
    // What goes may have kept another thread waiting that posts once more.
    while (!takeAllAndEnd().empty()) {
    }
}

std::deque<std::function<void()>> QtMainQueue::Receiver::takeAllAndEnd()
{
    const std::lock_guard lock(mutex_);
    isEnded_ = true;
    return std::exchange(work_, {});
}

void QtMainQueue::Receiver::customEvent(QEvent*)
{
    std::size_t count = 0;
    {
        const std::lock_guard lock(mutex_);
        isWakePosted_ = false;
        count = work_.size();
    }
    // Each is taken when its turn comes: one that runs an event loop of its own must not hold up those after it. What
    // is posted meanwhile waits for the other events of the loop.
    for (; count > 0; --count) {
        const std::function<void()> work = next();
        if (!work)
            break;
        work();
    }
}

std::function<void()> QtMainQueue::Receiver::next()
{
    const std::lock_guard lock(mutex_);
    if (isEnded_ || work_.empty())
        return nullptr;
    std::function<void()> first = std::move(work_.front());
    work_.pop_front();
    return first;
}

void QtMainQueue::postAfter(std::chrono::nanoseconds delay, std::function<void()> work)
{
    if (!delays_)
        return;
    // The toolkit's own single shots would keep the work until they fire, even past the end of the queue.
    auto* const timer = new QTimer(delays_.get());
    timer->setTimerType(Qt::PreciseTimer);
    timer->setSingleShot(true);
    QObject::connect(timer, &QTimer::timeout, timer, [timer, work = std::move(work)] {
        timer->deleteLater();
        work();
    });
    timer->start(wholeMilliseconds(delay));
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
