#include "platform/desktop/login_session.h"

#include "platform/desktop/bus_question.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QVariantMap>

#include <chrono>
#include <utility>

namespace nimbrale {

namespace {

using namespace std::chrono_literals;

const char* const manager = "org.freedesktop.login1";
const char* const sessionInterface = "org.freedesktop.login1.Session";
const char* const propertiesInterface = "org.freedesktop.DBus.Properties";
const char* const lockedHint = "LockedHint";

/// By this name the login manager finds the session that a process is in, or else the user's graphical one.
const char* const callersSession = "auto";

// Names for the log.
const char* const hintSource = "the login manager's hint";
const char* const requestSource = "the login manager's request";

/// Who locks upon the request tells so in that time. Where nobody does, nothing is locked.
constexpr auto requestTime = 10s;

} // namespace

LoginSession::LoginSession(QDBusConnection bus, MainQueue& queue, LockReports& lock)
    : bus_(std::move(bus)), queue_(queue), lock_(lock)
{
    if (!bus_.isConnected())
        return;
    managerSignal_ = std::make_unique<BusSignal>(
        bus_, BusSignal::Match{"org.freedesktop.DBus", {}, "org.freedesktop.DBus", "NameOwnerChanged"},
        [this](const QDBusMessage& message) { managerChanged(message); });
    find(qEnvironmentVariable("XDG_SESSION_ID", callersSession));
}

LoginSession::~LoginSession() = default;

void LoginSession::find(const QString& session)
{
    QDBusMessage call = QDBusMessage::createMethodCall(manager, "/org/freedesktop/login1",
                                                       "org.freedesktop.login1.Manager", "GetSession");
    call << session;
    askOnBus(*this, bus_, call, [this, session](const QDBusMessage& answer) {
        // A program may have been started with another session's environment.
        if (answer.type() != QDBusMessage::ErrorMessage && answer.signature() == "o")
            follow(answer.arguments().front().value<QDBusObjectPath>().path());
        else if (session != callersSession)
            find(callersSession);
    });
}

void LoginSession::follow(const QString& path)
{
    sessionSignals_.clear();
    const auto hear = [&](const char* interface, const char* member, BusSignal::Handler handler) {
        sessionSignals_.push_back(
            std::make_unique<BusSignal>(bus_, BusSignal::Match{manager, path, interface, member}, std::move(handler)));
    };
    hear(sessionInterface, "Lock", [this](const QDBusMessage&) { lockWasAskedFor(); });
    hear(sessionInterface, "Unlock", [this](const QDBusMessage&) { endRequest(); });
    hear(propertiesInterface, "PropertiesChanged", [this](const QDBusMessage& message) {
        if (message.signature() != "sa{sv}as")
            return;
        const auto changed = qdbus_cast<QVariantMap>(message.arguments().at(1));
        if (const auto hint = changed.find(lockedHint); hint != changed.end())
            setHint(hint->toBool());
    });
    QDBusMessage call = QDBusMessage::createMethodCall(manager, path, propertiesInterface, "Get");
    call << sessionInterface << lockedHint;
    askOnBus(*this, bus_, call, [this](const QDBusMessage& answer) {
        if (answer.type() != QDBusMessage::ErrorMessage && answer.signature() == "v")
            setHint(answer.arguments().front().value<QDBusVariant>().variant().toBool());
    });
}

void LoginSession::managerChanged(const QDBusMessage& message)
{
    if (message.signature() != "sss" || message.arguments().at(0).toString() != manager)
        return;
    sessionSignals_.clear();
    setHint(false);
    const bool isThere = !message.arguments().at(2).toString().isEmpty();
    if (isThere)
        find(qEnvironmentVariable("XDG_SESSION_ID", callersSession));
}

void LoginSession::setHint(bool isLocked)
{
    lock_.report(hintSource, isLocked);
    endRequest();
}

void LoginSession::lockWasAskedFor()
{
    lock_.report(requestSource, true);
    requestEnd_ = queue_.schedule(requestTime, [this] { endRequest(); });
}

void LoginSession::endRequest()
{
    requestEnd_.reset();
    lock_.report(requestSource, false);
}

} // namespace nimbrale
