#include "platform/desktop/notification_service.h"

#include "platform/desktop/bus_question.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QGuiApplication>
#include <QStringList>
#include <QVariantMap>

#include <chrono>
#include <utility>

namespace nimbrale {

namespace {

/// The service may have to be started first.
constexpr std::chrono::seconds longestCall{5};

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
    callOnBus(*this, bus, callFor(notification), longestCall,
              [onNotShown = std::move(onNotShown)](const QDBusMessage& answer) {
                  if (answer.type() == QDBusMessage::ErrorMessage)
                      onNotShown();
              });
}

} // namespace nimbrale
