#pragma once

#include "tests/support/event_loop.h"
#include "tests/support/private_bus.h"

#include <QCoreApplication>
#include <QDBusMessage>

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace nimbrale::test {

/// Stands for a service of the desktop: notes the calls and accepts or refuses them.
class FakeService {
public:
    FakeService(const std::string& bus, const QString& name, const QString& path, bool accepts) : program_(bus)
    {
        EXPECT_TRUE(program_.serve(name, path, [this, accepts](const QDBusMessage& call) {
            calls.push_back(call);
            return accepts ? call.createReply() : call.createErrorReply(QDBusError::Failed, "no");
        }));
    }

    std::vector<QDBusMessage> calls;

private:
    BusProgram program_;
};

/// One bus for the whole suite, since the toolkit keeps its connection to the first one that it met.
class SessionBusTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        application = std::make_unique<QCoreApplication>(argumentCount, arguments);
        bus = PrivateBus::start(reason);
        if (bus)
            qputenv("DBUS_SESSION_BUS_ADDRESS", bus->address().c_str());
    }
    static void TearDownTestSuite()
    {
        application.reset();
        bus.reset();
    }
    void SetUp() override
    {
        if (!bus)
            GTEST_SKIP() << reason;
    }

    /// Long enough for a call that would be made.
    static void letPass()
    {
        static_cast<void>(runUntil([] { return false; }, Milliseconds{300}));
    }

    static inline int argumentCount = 1;
    static inline char name[5] = "test";
    static inline char* arguments[2] = {name, nullptr};
    static inline std::unique_ptr<QCoreApplication> application;
    static inline std::unique_ptr<PrivateBus> bus;
    static inline std::string reason;
};

} // namespace nimbrale::test
