#include "platform/serial_queue.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <pthread.h>
#include <thread>

namespace nimbrale {

struct SerialQueue::State {
    std::string label;
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> work;
    bool ending = false;
    /// Whether work is being done, here or on another thread.
    bool busy = false;
    std::thread thread;

    void run();
    void perform(std::unique_lock<std::mutex>& lock, std::function<void()> next);
};

void SerialQueue::State::run()
{
    pthread_setname_np(pthread_self(), label.substr(0, 15).c_str());
    std::unique_lock lock(mutex);
    while (true) {
        wake.wait(lock, [this] { return !busy && (ending || !work.empty()); });
        if (work.empty())
            return;
        std::function<void()> next = std::move(work.front());
        work.pop_front();
        perform(lock, std::move(next));
    }
}

void SerialQueue::State::perform(std::unique_lock<std::mutex>& lock, std::function<void()> next)
{
    busy = true;
    lock.unlock();
    next();
    next = nullptr; // What the call owned goes before the lock is taken again: its destructor may post.
    lock.lock();
    busy = false;
}

SerialQueue::SerialQueue(std::string label) : state_(std::make_unique<State>())
{
    state_->label = std::move(label);
    state_->thread = std::thread([state = state_.get()] { state->run(); });
}

SerialQueue::~SerialQueue()
{
    {
        const std::lock_guard lock(state_->mutex);
        state_->ending = true;
    }
    state_->wake.notify_one();
    state_->thread.join();
}

const std::string& SerialQueue::label() const
{
    return state_->label;
}

void SerialQueue::post(std::function<void()> work)
{
    {
        const std::lock_guard lock(state_->mutex);
        state_->work.push_back(std::move(work));
    }
    state_->wake.notify_one();
}

void SerialQueue::runOrPost(std::function<void()> work)
{
    std::unique_lock lock(state_->mutex);
    if (state_->busy || !state_->work.empty()) {
        state_->work.push_back(std::move(work));
    } else {
        state_->perform(lock, std::move(work));
        if (state_->work.empty() && !state_->ending)
            return;
    }
    // Under the lock: the queue may go as soon as its thread has seen that there is nothing left to do.
    state_->wake.notify_one();
}

} // namespace nimbrale
