#include "tests/support/session_manager.h"

namespace nimbrale::test {

std::unique_ptr<SessionManager> SessionManager::start(PrivateDesktop& desktop, std::string& reason)
{
    constexpr bool isSpokenWith = true;
    std::unique_ptr<Process> process = desktop.spawn("nimbrale_session_manager", {}, {}, isSpokenWith);
    if (!process) {
        reason = "the test's session manager is not built";
        return nullptr;
    }
    const std::optional<std::string> address = process->readLine();
    if (!address) {
        reason = "the test's session manager did not start: " + process->output();
        return nullptr;
    }
    return std::unique_ptr<SessionManager>(new SessionManager(std::move(process), *address));
}

std::string SessionManager::next(Milliseconds timeout)
{
    return process_->readLine(timeout).value_or("");
}

} // namespace nimbrale::test
