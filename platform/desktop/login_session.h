#pragma once

#include "platform/desktop/bus_signal.h"
#include "platform/main_queue.h"
#include "platform/session_lock.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <memory>
#include <vector>

namespace nimbrale {

/// What the login manager says of the lock: the hint that desktops give it about the session that this process is in,
/// and its own request to lock, which comes before anything is locked. Main thread only.
class LoginSession final : public QObject {
public:
    /// `queue` and `lock` must outlive it.
    LoginSession(QDBusConnection bus, MainQueue& queue, LockReports& lock);
    ~LoginSession() override;
    LoginSession(const LoginSession&) = delete;
    LoginSession& operator=(const LoginSession&) = delete;

private:
    void find(const QString& session);
    void follow(const QString& path);
    void managerChanged(const QDBusMessage& message);
    void setHint(bool isLocked);
    void lockWasAskedFor();
    void endRequest();

    QDBusConnection bus_;
    MainQueue& queue_;
    LockReports& lock_;
    std::unique_ptr<BusSignal> managerSignal_;
    std::vector<std::unique_ptr<BusSignal>> sessionSignals_;
    std::unique_ptr<Timer> requestEnd_;
};

} // namespace nimbrale
