#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>

#include <functional>

namespace nimbrale {

/// Hears a signal on a message bus for as long as it lives. Main thread only, while the application object exists.
class BusSignal final : public QObject {
    Q_OBJECT

public:
    /// Which signals are heard; an empty service or path stands for every one.
    struct Match {
        QString service;
        QString path;
        QString interface;
        QString member;
    };
    using Handler = std::function<void(const QDBusMessage& message)>;

    /// Hears nothing on a bus that is not connected. The handler may not end this object.
    BusSignal(QDBusConnection bus, Match match, Handler handler);
    ~BusSignal() override;
    BusSignal(const BusSignal&) = delete;
    BusSignal& operator=(const BusSignal&) = delete;

private:
    Q_SLOT void receive(const QDBusMessage& message);

    QDBusConnection bus_;
    Match match_;
    Handler handler_;
};

} // namespace nimbrale
