#pragma once

#include <functional>
#include <memory>

namespace nimbrale {

/// Turns the signals that ask a program to end (SIGTERM, SIGINT, SIGHUP) into a call on the main thread's event loop,
/// so that the application can put the desktop in order first. One at a time.
class TerminationSignals {
public:
    /// `onSignal` is called for each such signal. Where the system refuses, that is logged and signals end the
    /// process as usual.
    explicit TerminationSignals(std::function<void()> onSignal);
    /// Signals end the process as usual again.
    ~TerminationSignals();
    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace nimbrale
