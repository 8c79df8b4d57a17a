#include "platform/desktop/bus_question.h"

#include <QDBusPendingCallWatcher>

#include <utility>

namespace nimbrale {

void callOnBus(QObject& owner, const QDBusConnection& bus, const QDBusMessage& call, std::chrono::milliseconds patience,
               std::function<void(const QDBusMessage& answer)> onAnswer)
{
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, static_cast<int>(patience.count())), &owner);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, &owner, [watcher, onAnswer = std::move(onAnswer)] {
        watcher->deleteLater();
        onAnswer(watcher->reply());
    });
}

void askOnBus(QObject& owner, const QDBusConnection& bus, QDBusMessage call,
              std::function<void(const QDBusMessage& answer)> onAnswer)
{
    constexpr std::chrono::seconds longestAnswer{1};
    call.setAutoStartService(false);
    callOnBus(owner, bus, call, longestAnswer, std::move(onAnswer));
}

} // namespace nimbrale
