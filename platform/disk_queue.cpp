#include "platform/disk_queue.h"

#include "platform/log.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <pthread.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace nimbrale {

namespace {

constexpr std::chrono::milliseconds waitStep{20};

std::atomic<int> threadsAtWork = 0;

void endDespiteDisks(int status, void*)
{
    if (threadsAtWork > 0)
        ::_exit(status);
}

/// For a thread at work that nobody waits for any more. The libraries' own clean-up comes after this: whoever registers
/// last is called first.
void prepareExit()
{
    if (::on_exit(endDespiteDisks, nullptr) != 0)
        qCWarning(recordingLog, "The application's end may have to wait for the disk.");
}

} // namespace

/// Shared by the queue and its thread, which may outlive it.
struct DiskQueue::State {
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::deque<std::function<void()>> work;
    bool isEnding = false;
    bool isBusy = false;
    std::thread thread;

    [[nodiscard]] bool isDone() const { return !isBusy && work.empty(); }
    void run();
};

void DiskQueue::State::run()
{
    std::unique_lock lock(mutex);
    while (true) {
        changed.wait(lock, [this] { return isEnding || !work.empty(); });
        if (work.empty())
            break;
        std::function<void()> next = std::move(work.front());
        work.pop_front();
        isBusy = true;
        ++threadsAtWork;
        lock.unlock();
        next();
        next = nullptr; // What the call owned goes before the lock is taken again: its destructor may post.
        --threadsAtWork;
        lock.lock();
        isBusy = false;
        changed.notify_all();
    }
}

DiskQueue::DiskQueue(std::string label) : state_(std::make_shared<State>())
{
    state_->thread = std::thread([state = state_, label = std::move(label)] {
        pthread_setname_np(pthread_self(), label.substr(0, 15).c_str());
        state->run();
    });
}

DiskQueue::~DiskQueue()
{
    std::unique_lock lock(state_->mutex);
    state_->isEnding = true;
    const bool isDone = state_->isDone();
    state_->changed.notify_all();
    lock.unlock();
    if (isDone) {
        state_->thread.join();
        return;
    }
    state_->thread.detach();
    prepareExit();
}

void DiskQueue::post(std::function<void()> work)
{
    {
        const std::lock_guard lock(state_->mutex);
        state_->work.push_back(std::move(work));
    }
    state_->changed.notify_all();
}

bool DiskQueue::isDone() const
{
    const std::lock_guard lock(state_->mutex);
    return state_->isDone();
}

void DiskQueue::waitWhile(const std::function<bool()>& isWorthWaiting) const
{
    std::unique_lock lock(state_->mutex);
    while (!state_->changed.wait_for(lock, waitStep, [this] { return state_->isDone(); })) {
        lock.unlock();
        if (!isWorthWaiting()) {
            prepareExit();
            return;
        }
        lock.lock();
    }
}

} // namespace nimbrale
