#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace nimbrale {

/// A scheduled call. Destroying it cancels the call; destroying it from inside the call is allowed.
class Timer {
public:
    virtual ~Timer() = default;
};

/// The application's main thread as a queue. The application's runs on the toolkit's event loop, the tests' on a
/// manual clock.
class MainQueue {
public:
    virtual ~MainQueue() = default;

    /// The time by which the timers run: CLOCK_MONOTONIC. Main thread only.
    [[nodiscard]] virtual std::chrono::nanoseconds now() const = 0;
    /// Runs `work` on the main thread, after everything posted before, and releases it there. Any thread.
    virtual void post(std::function<void()> work) = 0;
    /// Runs `work` once on the main thread, `delay` from now. Main thread only.
    virtual void postAfter(std::chrono::nanoseconds delay, std::function<void()> work) = 0;
    /// Like `postAfter`, but cancelled when the returned timer goes. Main thread only.
    [[nodiscard]] virtual std::unique_ptr<Timer> schedule(std::chrono::nanoseconds delay,
                                                          std::function<void()> work) = 0;
    /// Runs `work` every `interval` until the returned timer goes. Main thread only.
    [[nodiscard]] virtual std::unique_ptr<Timer> scheduleRepeating(std::chrono::nanoseconds interval,
                                                                   std::function<void()> work) = 0;
};

} // namespace nimbrale
