#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>

#include <functional>

namespace nimbrale {

/// Calls a method on a message bus; `onAnswer` gets the reply, or the error, on the main thread, unless `owner` has
/// gone before. Starts no service for it. Main thread only.
void askOnBus(QObject& owner, const QDBusConnection& bus, QDBusMessage call,
              std::function<void(const QDBusMessage& answer)> onAnswer);

} // namespace nimbrale
