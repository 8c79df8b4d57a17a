#include "platform/desktop/notification_service.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QGuiApplication>
#include <QStringList>
#include <QVariantMap>

#include <utility>

namespace nimbrale {

namespace {

/// The service may have to be started first.
constexpr int longestCall = 5000; // milliseconds

QDBusMessage callFor(const Notification& notification)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        "org.freedesktop.Notifications", "/org/freedesktop/Notifications", "org.freedesktop.Notifications", "Notify");
    const quint32 replacesNone = 0;
    const QString noIcon = "";
    const QStringList noActions;
    const qint32 asLongAsUsual = -1;
    call << QCoreApplication::applicationName() << replacesNone << noIcon << QString::fromStdString(notification.title)
         << QString::fromStdString(notification.text) << noActions << QVariantMap() << asLongAsUsual;
    return call;
}

} // namespace

void NotificationService::show(const Notification& notification, std::function<void()> onNotShown)
{
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        QMetaObject::invokeMethod(this, std::move(onNotShown), Qt::QueuedConnection);
        return;
    }
    auto* const watcher = new QDBusPendingCallWatcher(bus.asyncCall(callFor(notification), longestCall), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [watcher, onNotShown = std::move(onNotShown)] {
        watcher->deleteLater();
        if (watcher->isError())
            onNotShown();
    });
}

} // namespace nimbrale
