#pragma once

#include "platform/observers.h"

#include <functional>
#include <set>
#include <string>

namespace nimbrale {

/// Whether the user's session is locked, so that nobody at the computer may see what is on its screen. Main thread
/// only.
class SessionLock {
public:
    virtual ~SessionLock() = default;

    [[nodiscard]] virtual bool isLocked() const = 0;
    /// Called whenever `isLocked` has come to answer otherwise.
    [[nodiscard]] virtual Subscription observe(std::function<void()> observer) = 0;
};

/// Puts together what several sources say of the lock: the session is locked while any of them says so.
class LockReports final : public SessionLock {
public:
    /// What `source`, a name for the log, says from now on. One that is gone says that nothing is locked.
    void report(const std::string& source, bool isLocked);

    [[nodiscard]] bool isLocked() const override { return !lockedBy_.empty(); }
    [[nodiscard]] Subscription observe(std::function<void()> observer) override
    {
        return observers_.add(std::move(observer));
    }

private:
    std::set<std::string> lockedBy_;
    Observers observers_;
};

} // namespace nimbrale
