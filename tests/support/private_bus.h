#pragma once

#include "tests/support/process.h"

#include <QDBusConnection>
#include <QDBusVirtualObject>
#include <QString>
#include <QTemporaryDir>
#include <QVariantList>

#include <functional>
#include <memory>
#include <string>

namespace nimbrale::test {

/// A message bus of the test's own. Ends with this object.
class PrivateBus {
public:
    /// Null, with the reason, when it does not start.
    [[nodiscard]] static std::unique_ptr<PrivateBus> start(std::string& reason);

    [[nodiscard]] const std::string& address() const { return address_; }

private:
    PrivateBus() = default;

    QTemporaryDir home_;
    std::unique_ptr<Process> daemon_;
    std::string address_;
};

/// Stands for a program on a bus, by a connection of its own, which ends with this object. While the toolkit's
/// application object exists.
class BusProgram final : public QDBusVirtualObject {
public:
    /// Makes the answer to a call.
    using Answer = std::function<QDBusMessage(const QDBusMessage& call)>;

    explicit BusProgram(const std::string& address);
    ~BusProgram() override;
    BusProgram(const BusProgram&) = delete;
    BusProgram& operator=(const BusProgram&) = delete;

    [[nodiscard]] bool isConnected() const { return connection_.isConnected(); }
    /// Takes that name and answers the calls to `path` and below it, while this thread handles its events.
    [[nodiscard]] bool serve(const QString& name, const QString& path, Answer answer);
    void signal(const QString& path, const QString& interface, const QString& member, const QVariantList& arguments);

    [[nodiscard]] QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

private:
    QString connectionName_;
    QDBusConnection connection_;
    Answer answer_;
};

} // namespace nimbrale::test
