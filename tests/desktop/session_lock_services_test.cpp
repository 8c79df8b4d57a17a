// What the services of a desktop say of the session's lock, each on a bus of the test's own.

#include "platform/desktop/login_session.h"
#include "platform/desktop/screen_savers.h"
#include "tests/fakes/fake_main_queue.h"
#include "tests/fakes/offscreen_application.h"
#include "tests/support/event_loop.h"
#include "tests/support/private_bus.h"
#include "tests/support/requirements.h"

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QUuid>
#include <QVariantMap>

#include <chrono>
#include <gmock/gmock.h>
#include <memory>
#include <optional>
#include <string>

namespace nimbrale::test {
namespace {

using namespace std::chrono_literals;

/// A bus for each test, and this process's connection to it.
class BusTest : public testing::Test {
protected:
    BusTest() { startOffscreenApplication(); }
    void SetUp() override
    {
        requireProgram("dbus-daemon");
        std::string reason;
        bus = PrivateBus::start(reason);
        ASSERT_TRUE(bus) << reason;
        connection = QDBusConnection::connectToBus(QString::fromStdString(bus->address()), connectionName);
        ASSERT_TRUE(connection.isConnected());
    }
    void TearDown() override
    {
        connection = QDBusConnection(QString());
        QDBusConnection::disconnectFromBus(connectionName);
    }

    [[nodiscard]] std::unique_ptr<BusProgram> program() const { return std::make_unique<BusProgram>(bus->address()); }
    [[nodiscard]] bool becomes(bool isLocked)
    {
        return runUntil([&] { return lock.isLocked() == isLocked; });
    }
    [[nodiscard]] bool stays(bool isLocked)
    {
        return !runUntil([&] { return lock.isLocked() != isLocked; }, Milliseconds{300});
    }

    QString connectionName = QUuid::createUuid().toString();
    std::unique_ptr<PrivateBus> bus;
    QDBusConnection connection{QString()};
    LockReports lock;
};

/// A screen saver by the name of its service.
class ScreenSaversTest : public BusTest, public testing::WithParamInterface<const char*> {
protected:
    [[nodiscard]] static QString name() { return GetParam(); }
    [[nodiscard]] static QString path() { return '/' + name().replace('.', '/'); }
    static void say(BusProgram& saver, const QVariant& isActive)
    {
        saver.signal(path(), name(), "ActiveChanged", {isActive});
    }
    static void serve(BusProgram& saver, bool isActive)
    {
        EXPECT_TRUE(saver.serve(name(), path(), [isActive](const QDBusMessage& call) {
            const bool isKnown = call.interface() == name() && call.member() == "GetActive" && call.path() == path();
            return isKnown ? call.createReply(isActive) : call.createErrorReply(QDBusError::UnknownMethod, "no");
        }));
    }
};

INSTANTIATE_TEST_SUITE_P(Savers, ScreenSaversTest,
                         testing::Values("org.freedesktop.ScreenSaver", "org.gnome.ScreenSaver",
                                         "org.cinnamon.ScreenSaver", "org.mate.ScreenSaver", "org.xfce.ScreenSaver"),
                         [](const auto& saver) { return QString(saver.param).section('.', 1, 1).toStdString(); });

TEST_P(ScreenSaversTest, AnActiveOneLocksUntilItIsNot)
{
    const ScreenSavers savers(connection, lock);
    const auto saver = program();
    ASSERT_TRUE(stays(false));
    say(*saver, true);
    EXPECT_TRUE(becomes(true));
    EXPECT_TRUE(stays(true));
    say(*saver, false);
    EXPECT_TRUE(becomes(false));
}

TEST_P(ScreenSaversTest, OneThatIsActiveAtTheStartIsFound)
{
    const auto saver = program();
    serve(*saver, true);
    const ScreenSavers savers(connection, lock);
    EXPECT_TRUE(becomes(true));
    say(*saver, false);
    EXPECT_TRUE(becomes(false));
}

TEST_P(ScreenSaversTest, OneThatIsNotActiveLocksNothing)
{
    const auto saver = program();
    serve(*saver, false);
    const ScreenSavers savers(connection, lock);
    EXPECT_TRUE(stays(false));
}

TEST_P(ScreenSaversTest, OneThatComesActiveIsFound)
{
    const ScreenSavers savers(connection, lock);
    ASSERT_TRUE(stays(false));
    const auto saver = program();
    serve(*saver, true);
    EXPECT_TRUE(becomes(true));
}

TEST_P(ScreenSaversTest, OneThatEndsWhileActiveLocksNoLonger)
{
    const ScreenSavers savers(connection, lock);
    auto saver = program();
    serve(*saver, false);
    ASSERT_TRUE(stays(false));
    say(*saver, true);
    ASSERT_TRUE(becomes(true));
    saver.reset();
    EXPECT_TRUE(becomes(false));
}

TEST_P(ScreenSaversTest, OneThatSaysAnythingElseIsNotHeard)
{
    const ScreenSavers savers(connection, lock);
    const auto saver = program();
    say(*saver, "true");
    saver->signal(path(), name(), "ActiveChanged", {});
    EXPECT_TRUE(stays(false));
    say(*saver, true);
    EXPECT_TRUE(becomes(true)) << "the control";
}

using SeveralScreenSaversTest = BusTest;

TEST_F(SeveralScreenSaversTest, TheOneThatIsActiveDecides)
{
    const ScreenSavers savers(connection, lock);
    const auto first = program();
    auto second = program();
    first->signal("/ScreenSaver", "org.freedesktop.ScreenSaver", "ActiveChanged", {true});
    second->signal("/org/gnome/ScreenSaver", "org.gnome.ScreenSaver", "ActiveChanged", {true});
    ASSERT_TRUE(becomes(true));
    first->signal("/ScreenSaver", "org.freedesktop.ScreenSaver", "ActiveChanged", {false});
    EXPECT_TRUE(stays(true));
    second.reset();
    EXPECT_TRUE(becomes(false));
}

TEST_F(SeveralScreenSaversTest, WithoutABusNothingIsLocked)
{
    const ScreenSavers savers(QDBusConnection::connectToBus("unix:path=/no/such/bus", "none"), lock);
    EXPECT_TRUE(stays(false));
    QDBusConnection::disconnectFromBus("none");
}

/// The login manager, in one session of which this process is.
class LoginSessionTest : public BusTest {
protected:
    void SetUp() override
    {
        BusTest::SetUp();
        qputenv("XDG_SESSION_ID", "c7");
    }
    void TearDown() override
    {
        qunsetenv("XDG_SESSION_ID");
        BusTest::TearDown();
    }

    void startManager()
    {
        manager = program();
        ASSERT_TRUE(manager->serve("org.freedesktop.login1", "/org/freedesktop/login1",
                                   [this](const QDBusMessage& call) { return answer(call); }));
    }
    [[nodiscard]] QDBusMessage answer(const QDBusMessage& call) const
    {
        if (call.member() == "GetSession" && call.arguments().value(0).toString() == knownSession)
            return call.createReply(QVariant::fromValue(QDBusObjectPath(session)));
        if (call.path() == session && call.member() == "Get" && call.arguments().value(1).toString() == "LockedHint")
            return call.createReply(QVariant::fromValue(QDBusVariant(hint)));
        return call.createErrorReply(QDBusError::InvalidArgs, "no");
    }
    void setHint(bool isLocked, const QString& path = session)
    {
        manager->signal(path, "org.freedesktop.DBus.Properties", "PropertiesChanged",
                        {"org.freedesktop.login1.Session", QVariantMap{{"LockedHint", isLocked}}, QStringList{}});
    }
    void ask(const QString& what) { manager->signal(session, "org.freedesktop.login1.Session", what, {}); }
    void follow() { login = std::make_unique<LoginSession>(connection, queue, lock); }
    /// Once that is so, the session's signals are heard.
    void followLockedSession()
    {
        hint = true;
        startManager();
        follow();
        ASSERT_TRUE(becomes(true));
    }
    void followUnlockedSession()
    {
        followLockedSession();
        setHint(false);
        ASSERT_TRUE(becomes(false));
    }

    static inline const QString session = "/org/freedesktop/login1/session/c7";
    QString knownSession = "c7";
    bool hint = false;
    FakeMainQueue queue;
    std::unique_ptr<BusProgram> manager;
    std::unique_ptr<LoginSession> login;
};

TEST_F(LoginSessionTest, ALockThatIsThereAtTheStartIsFound)
{
    followLockedSession();
    EXPECT_TRUE(stays(true));
}

TEST_F(LoginSessionTest, TheHintIsFollowed)
{
    followUnlockedSession();
    setHint(true);
    EXPECT_TRUE(becomes(true));
    queue.advance(1h);
    EXPECT_TRUE(stays(true));
    setHint(false);
    EXPECT_TRUE(becomes(false));
}

TEST_F(LoginSessionTest, AnotherSessionsHintIsNot)
{
    followUnlockedSession();
    setHint(true, "/org/freedesktop/login1/session/c8");
    EXPECT_TRUE(stays(false));
}

TEST_F(LoginSessionTest, TheRequestToLockCountsAtOnceAndForAWhile)
{
    followUnlockedSession();
    ask("Lock");
    EXPECT_TRUE(becomes(true));
    queue.advance(9999ms);
    EXPECT_TRUE(lock.isLocked());
    queue.advance(1ms);
    EXPECT_FALSE(lock.isLocked()) << "nobody has locked anything";
}

TEST_F(LoginSessionTest, TheHintThatFollowsTheRequestOutlastsIt)
{
    followUnlockedSession();
    ask("Lock");
    ASSERT_TRUE(becomes(true));
    setHint(true);
    EXPECT_TRUE(stays(true));
    queue.advance(1h);
    EXPECT_TRUE(lock.isLocked());
    setHint(false);
    EXPECT_TRUE(becomes(false));
}

TEST_F(LoginSessionTest, TheRequestToUnlockTakesTheOtherBack)
{
    followUnlockedSession();
    ask("Lock");
    ASSERT_TRUE(becomes(true));
    ask("Unlock");
    EXPECT_TRUE(becomes(false));
}

TEST_F(LoginSessionTest, TheRequestToUnlockLeavesTheHint)
{
    followLockedSession();
    ask("Unlock");
    EXPECT_TRUE(stays(true)) << "whoever locks still has to do it";
}

TEST_F(LoginSessionTest, AManagerThatEndsLocksNoLongerAndIsFoundAgain)
{
    followLockedSession();
    manager.reset();
    EXPECT_TRUE(becomes(false));
    startManager();
    EXPECT_TRUE(becomes(true));
}

TEST_F(LoginSessionTest, ASessionThatIsNotThereIsLookedForByTheProcess)
{
    knownSession = "auto";
    followLockedSession();
}

TEST_F(LoginSessionTest, WithoutAManagerNothingIsLocked)
{
    follow();
    EXPECT_TRUE(stays(false));
}

} // namespace
} // namespace nimbrale::test
