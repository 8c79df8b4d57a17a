#pragma once

#include "tests/support/private_desktop.h"

#include <memory>
#include <string>

namespace nimbrale::test {

/// A session of one program on a private desktop, which ends when the test says so.
class SessionManager {
public:
    /// Null, with the reason, when it does not start.
    [[nodiscard]] static std::unique_ptr<SessionManager> start(PrivateDesktop& desktop, std::string& reason);

    /// What the program's environment must have.
    [[nodiscard]] Environment environment() const { return {{"SESSION_MANAGER", address_}}; }
    /// Waits for what happens next: "registered", "asked", "cancelled", "saved" or "closed"; empty on a timeout.
    [[nodiscard]] std::string next(Milliseconds timeout = Milliseconds{5000});
    /// The session is about to end: its program is asked to get ready.
    void shutDown() { process_->write("shutdown\n"); }
    /// The program is asked to save its state while the session goes on.
    void checkpoint() { process_->write("checkpoint\n"); }
    /// The session ends: the program is told to quit.
    void die() { process_->write("die\n"); }

private:
    SessionManager(std::unique_ptr<Process> process, std::string address)
        : process_(std::move(process)), address_(std::move(address))
    {}

    std::unique_ptr<Process> process_;
    std::string address_;
};

} // namespace nimbrale::test
