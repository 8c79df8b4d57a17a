#pragma once

#include "tests/support/bus_configuration.h"
#include "tests/support/event_loop.h"
#include "tests/support/process.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QTemporaryDir>

#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale::test {

/// Stands for a service of the desktop: notes the calls and accepts or refuses them.
class FakeService final : public QDBusVirtualObject {
public:
    FakeService(const QDBusConnection& connection, const QString& name, const QString& path, bool accepts)
        : connection_(connection), name_(name), path_(path), accepts_(accepts)
    {
        EXPECT_TRUE(connection_.registerVirtualObject(path_, this));
        EXPECT_TRUE(connection_.registerService(name_));
    }
    ~FakeService() override
    {
        connection_.unregisterService(name_);
        connection_.unregisterObject(path_);
    }
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    [[nodiscard]] QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        calls.push_back(message);
        connection.send(accepts_ ? message.createReply() : message.createErrorReply(QDBusError::Failed, "no"));
        return true;
    }

    std::vector<QDBusMessage> calls;

private:
    QDBusConnection connection_;
    QString name_;
    QString path_;
    bool accepts_;
};

/// One bus for the whole suite, since the toolkit keeps its connection to the first one that it met.
class SessionBusTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        application = std::make_unique<QCoreApplication>(argumentCount, arguments);
        home = std::make_unique<QTemporaryDir>();
        Process::Options options;
        options.environment = {{"PATH", "/usr/bin:/bin"}, {"HOME", home->path().toStdString()}};
        options.isSpokenWith = true;
        const std::string configuration = home->filePath("bus.conf").toStdString();
        std::ofstream(configuration) << busConfiguration("session", "unix:dir=" + home->path().toStdString());
        bus = Process::start("dbus-daemon",
                             {"--config-file=" + configuration, "--nofork", "--nopidfile", "--print-address"}, options,
                             reason);
        const std::optional<std::string> address = bus ? bus->readLine() : std::nullopt;
        if (address)
            qputenv("DBUS_SESSION_BUS_ADDRESS", address->c_str());
    }
    static void TearDownTestSuite()
    {
        QDBusConnection::disconnectFromBus(servicesName);
        application.reset();
        bus.reset();
        home.reset();
    }
    void SetUp() override
    {
        if (!bus)
            GTEST_SKIP() << reason;
        ASSERT_TRUE(services().isConnected());
    }

    [[nodiscard]] static QDBusConnection services()
    {
        return QDBusConnection::connectToBus(qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"), servicesName);
    }
    /// Long enough for a call that would be made.
    static void letPass()
    {
        static_cast<void>(runUntil([] { return false; }, Milliseconds{300}));
    }

    static constexpr const char* servicesName = "services";
    static inline int argumentCount = 1;
    static inline char name[5] = "test";
    static inline char* arguments[2] = {name, nullptr};
    static inline std::unique_ptr<QCoreApplication> application;
    static inline std::unique_ptr<QTemporaryDir> home;
    static inline std::unique_ptr<Process> bus;
    static inline std::string reason;
};

} // namespace nimbrale::test
