#include "platform/session_lock.h"

#include "platform/log.h"

namespace nimbrale {

void LockReports::report(const std::string& source, bool isLocked)
{
    const bool wasLocked = !lockedBy_.empty();
    if (isLocked)
        lockedBy_.insert(source);
    else
        lockedBy_.erase(source);
    if (lockedBy_.empty() != wasLocked)
        return;
    qCInfo(sessionLog, "%s: %s", isLocked ? "Locked" : "No longer locked", source.c_str());
    observers_.notify();
}

} // namespace nimbrale
