#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>

#include <chrono>
#include <functional>

namespace nimbrale {

/// Calls a method on a message bus, and starts the service for it where the call allows that; `onAnswer` gets the
/// reply, or the error, on the main thread, unless `owner` has gone before. No answer within `patience` is an error.
/// Main thread only.
void callOnBus(QObject& owner, const QDBusConnection& bus, const QDBusMessage& call, std::chrono::milliseconds patience,
               std::function<void(const QDBusMessage& answer)> onAnswer);

/// The same for a service that runs; one that does not is not started. Waits for a second.
void askOnBus(QObject& owner, const QDBusConnection& bus, QDBusMessage call,
              std::function<void(const QDBusMessage& answer)> onAnswer);

} // namespace nimbrale
