#include "platform/desktop/bus_question.h"

#include <QDBusPendingCallWatcher>

#include <utility>

namespace nimbrale {

namespace {

constexpr int longestAnswer = 1000; // milliseconds

} // namespace

void askOnBus(QObject& owner, const QDBusConnection& bus, QDBusMessage call,
              std::function<void(const QDBusMessage& answer)> onAnswer)
{
    call.setAutoStartService(false);
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, longestAnswer), &owner);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, &owner, [watcher, onAnswer = std::move(onAnswer)] {
        watcher->deleteLater();
        onAnswer(watcher->reply());
    });
}

} // namespace nimbrale
