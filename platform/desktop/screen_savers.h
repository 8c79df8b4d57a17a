#pragma once

#include "platform/desktop/bus_signal.h"
#include "platform/session_lock.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace nimbrale {

/// What the programs on the session's bus that save or lock the screen say of it. All desktops' speak alike, each by an
/// interface of its own. Whoever sends the signal is heard, since some speak through another program; one that is gone
/// has nothing to say any more. Main thread only.
class ScreenSavers final : public QObject {
public:
    /// Asks those that are there. `lock` must outlive it.
    ScreenSavers(QDBusConnection bus, LockReports& lock);
    ~ScreenSavers() override;
    ScreenSavers(const ScreenSavers&) = delete;
    ScreenSavers& operator=(const ScreenSavers&) = delete;

private:
    /// The sender's own name on the bus, and the interface.
    using Source = std::pair<QString, QString>;

    void ask(const QString& name);
    void ownerChanged(const QDBusMessage& message);
    void note(const Source& source, bool isActive);
    void forget(const QString& sender);

    QDBusConnection bus_;
    LockReports& lock_;
    std::map<Source, bool> active_;
    std::vector<std::unique_ptr<BusSignal>> signals_;
};

} // namespace nimbrale
