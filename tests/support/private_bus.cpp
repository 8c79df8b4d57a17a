#include "tests/support/private_bus.h"

#include "tests/support/bus_configuration.h"

#include <QDBusMessage>
#include <QUuid>

#include <fstream>
#include <optional>
#include <utility>

namespace nimbrale::test {

std::unique_ptr<PrivateBus> PrivateBus::start(std::string& reason)
{
    std::unique_ptr<PrivateBus> bus(new PrivateBus);
    Process::Options options;
    options.environment = {{"PATH", "/usr/bin:/bin"}, {"HOME", bus->home_.path().toStdString()}};
    options.isSpokenWith = true;
    const std::string configuration = bus->home_.filePath("bus.conf").toStdString();
    std::ofstream(configuration) << busConfiguration("session", "unix:dir=" + bus->home_.path().toStdString());
    bus->daemon_ =
        Process::start("dbus-daemon", {"--config-file=" + configuration, "--nofork", "--nopidfile", "--print-address"},
                       options, reason);
    if (!bus->daemon_)
        return nullptr;
    const std::optional<std::string> address = bus->daemon_->readLine();
    if (!address) {
        reason = "dbus-daemon says no address";
        return nullptr;
    }
    bus->address_ = *address;
    return bus;
}

BusProgram::BusProgram(const std::string& address)
    : connectionName_(QUuid::createUuid().toString()),
      connection_(QDBusConnection::connectToBus(QString::fromStdString(address), connectionName_))
{}

BusProgram::~BusProgram()
{
    connection_ = QDBusConnection(QString());
    QDBusConnection::disconnectFromBus(connectionName_);
}

bool BusProgram::serve(const QString& name, const QString& path, Answer answer)
{
    answer_ = std::move(answer);
    return connection_.registerVirtualObject(path, this, QDBusConnection::SubPath) && connection_.registerService(name);
}

void BusProgram::signal(const QString& path, const QString& interface, const QString& member,
                        const QVariantList& arguments)
{
    QDBusMessage message = QDBusMessage::createSignal(path, interface, member);
    message.setArguments(arguments);
    connection_.send(message);
}

QString BusProgram::introspect(const QString&) const
{
    return {};
}

bool BusProgram::handleMessage(const QDBusMessage& message, const QDBusConnection& connection)
{
    connection.send(answer_(message));
    return true;
}

} // namespace nimbrale::test
