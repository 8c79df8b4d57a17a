// What assistive technology learns of the frame's controls, and what it can do with them, by the real application on a
// real accessibility bus.

#include "tests/desktop/session_bus_fixture.h"
#include "tests/support/application.h"
#include "tests/support/requirements.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace nimbrale::test {

/// An object of the accessibility bus, as its calls name one.
struct AccessibleReference {
    QString service;
    QDBusObjectPath path;
};

const QDBusArgument& operator>>(const QDBusArgument& argument, AccessibleReference& reference)
{
    argument.beginStructure();
    argument >> reference.service >> reference.path;
    argument.endStructure();
    return argument;
}

namespace {

constexpr QRect region(200, 150, 400, 300);
const char* const launcher = "/usr/libexec/at-spi-bus-launcher";

/// A screen reader, as far as it asks what there is.
class AssistiveTechnology {
public:
    explicit AssistiveTechnology(const std::string& sessionBus)
        : session_(QDBusConnection::connectToBus(QString::fromStdString(sessionBus), QStringLiteral("session")))
    {
        QDBusMessage wish = call(QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                                 QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Set"));
        wish.setArguments(
            {QStringLiteral("org.a11y.Status"), QStringLiteral("IsEnabled"), QVariant::fromValue(QDBusVariant(true))});
        enabling_ = session_.call(wish);
        const QDBusMessage address = session_.call(call(QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                                                        QStringLiteral("org.a11y.Bus"), QStringLiteral("GetAddress")));
        bus_ = QDBusConnection::connectToBus(address.arguments().value(0).toString(), QStringLiteral("accessibility"));
    }
    ~AssistiveTechnology()
    {
        QDBusConnection::disconnectFromBus(QStringLiteral("accessibility"));
        QDBusConnection::disconnectFromBus(QStringLiteral("session"));
    }
    AssistiveTechnology(const AssistiveTechnology&) = delete;
    AssistiveTechnology& operator=(const AssistiveTechnology&) = delete;

    [[nodiscard]] bool isReady() const { return enabling_.type() == QDBusMessage::ReplyMessage && bus_.isConnected(); }
    [[nodiscard]] AccessibleReference desktop() const
    {
        return {QStringLiteral("org.a11y.atspi.Registry"),
                QDBusObjectPath(QStringLiteral("/org/a11y/atspi/accessible/root"))};
    }
    [[nodiscard]] std::vector<AccessibleReference> children(const AccessibleReference& parent) const
    {
        const QDBusMessage reply =
            bus_.call(call(parent.service, parent.path.path(), QStringLiteral("org.a11y.atspi.Accessible"),
                           QStringLiteral("GetChildren")));
        std::vector<AccessibleReference> found;
        if (reply.arguments().isEmpty())
            return found;
        const QDBusArgument list = reply.arguments().at(0).value<QDBusArgument>();
        list.beginArray();
        while (!list.atEnd()) {
            AccessibleReference child;
            list >> child;
            found.push_back(child);
        }
        list.endArray();
        return found;
    }
    [[nodiscard]] QString name(const AccessibleReference& object) const
    {
        QDBusMessage question = call(object.service, object.path.path(),
                                     QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
        question.setArguments({QStringLiteral("org.a11y.atspi.Accessible"), QStringLiteral("Name")});
        return bus_.call(question).arguments().value(0).value<QDBusVariant>().variant().toString();
    }
    [[nodiscard]] std::optional<AccessibleReference> child(const AccessibleReference& parent,
                                                           const QString& wanted) const
    {
        for (const AccessibleReference& candidate : children(parent)) {
            if (name(candidate) == wanted)
                return candidate;
        }
        return std::nullopt;
    }
    /// Pixels of the screen.
    [[nodiscard]] QRect extents(const AccessibleReference& object) const
    {
        QDBusMessage question = call(object.service, object.path.path(), QStringLiteral("org.a11y.atspi.Component"),
                                     QStringLiteral("GetExtents"));
        question.setArguments({QVariant::fromValue(std::uint32_t{0})});
        const QDBusMessage reply = bus_.call(question);
        if (reply.arguments().isEmpty())
            return {};
        const QDBusArgument argument = reply.arguments().at(0).value<QDBusArgument>();
        int x = 0;
        int y = 0;
        int width = 0;
        int height = 0;
        argument.beginStructure();
        argument >> x >> y >> width >> height;
        argument.endStructure();
        return {x, y, width, height};
    }
    [[nodiscard]] bool press(const AccessibleReference& object) const
    {
        QDBusMessage action = call(object.service, object.path.path(), QStringLiteral("org.a11y.atspi.Action"),
                                   QStringLiteral("DoAction"));
        action.setArguments({0});
        return bus_.call(action).arguments().value(0).toBool();
    }

private:
    [[nodiscard]] static QDBusMessage call(const QString& service, const QString& path, const QString& interface,
                                           const QString& method)
    {
        return QDBusMessage::createMethodCall(service, path, interface, method);
    }

    QDBusConnection session_;
    QDBusMessage enabling_;
    QDBusConnection bus_{QString()};
};

class AccessibilityTest : public SessionBusTest {
protected:
    void SetUp() override
    {
        if (access(launcher, X_OK) != 0)
            skipTest(std::string(launcher) + " is not installed");
        if (!bus)
            failTest(reason);
        desktop = requireDesktop({.windowManager = PrivateDesktop::WindowManager::openbox});
        startAccessibilityBus();
        ASSERT_TRUE(waitUntil([&] { return isOnBus("org.a11y.Bus"); }, Milliseconds{5000}));
        reader = std::make_unique<AssistiveTechnology>(bus->address());
        ASSERT_TRUE(reader->isReady());
        application = requireApplication(*desktop, {.region = region}, {{"DBUS_SESSION_BUS_ADDRESS", bus->address()}});
        ASSERT_TRUE(waitUntil([&] { return frame().has_value(); }, Milliseconds{10000})) << tree();
    }

    void startAccessibilityBus()
    {
        Process::Options options;
        options.environment = desktop->environment();
        options.environment["DBUS_SESSION_BUS_ADDRESS"] = bus->address();
        std::string error;
        launcher_ = Process::start(launcher, {"--launch-immediately"}, options, error);
        if (!launcher_)
            failTest(error);
    }
    [[nodiscard]] bool isOnBus(const char* service) const
    {
        const QString connection = QStringLiteral("question");
        const bool isThere = QDBusConnection::connectToBus(QString::fromStdString(bus->address()), connection)
                                 .interface()
                                 ->isServiceRegistered(QString::fromLatin1(service));
        QDBusConnection::disconnectFromBus(connection);
        return isThere;
    }
    [[nodiscard]] std::optional<AccessibleReference> program() const
    {
        return reader->child(reader->desktop(), QStringLiteral("Nimbrale"));
    }
    [[nodiscard]] std::optional<AccessibleReference> frame() const
    {
        const auto found = program();
        return found ? reader->child(*found, QStringLiteral("Nimbrale frame")) : std::nullopt;
    }
    /// For a message.
    [[nodiscard]] std::string tree() const
    {
        std::string text;
        for (const AccessibleReference& one : reader->children(reader->desktop())) {
            text += "\n" + reader->name(one).toStdString();
            for (const AccessibleReference& window : reader->children(one))
                text += "\n  " + reader->name(window).toStdString();
        }
        return text + "\n" + (application ? application->process().output() : "");
    }

    std::unique_ptr<PrivateDesktop> desktop;
    std::unique_ptr<AssistiveTechnology> reader;
    std::unique_ptr<Application> application;

private:
    std::unique_ptr<Process> launcher_;
};

TEST_F(AccessibilityTest, TheFrameTellsItsControlsAndWhereTheyAre)
{
    std::map<std::string, QRect> controls;
    std::vector<std::string> names;
    for (const AccessibleReference& control : reader->children(*frame())) {
        names.push_back(reader->name(control).toStdString());
        controls[names.back()] = reader->extents(control);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Move", "Close", "Settings", "Record", "Resize"}));
    EXPECT_TRUE(controls["Move"].contains(Application::handleOf(region)));
    EXPECT_TRUE(controls["Close"].contains(Application::closeButtonOf(region)));
    EXPECT_TRUE(controls["Settings"].contains(Application::settingsButtonOf(region)));
    EXPECT_TRUE(controls["Resize"].contains(Application::resizeButtonOf(region)));
}

TEST_F(AccessibilityTest, ButtonsCanBePressed)
{
    const auto settings = reader->child(*frame(), QStringLiteral("Settings"));
    ASSERT_TRUE(settings);
    EXPECT_FALSE(desktop->windowTitled("Settings"));
    EXPECT_TRUE(reader->press(*settings));
    EXPECT_TRUE(waitUntil([&] { return desktop->windowTitled("Settings").has_value(); }, Milliseconds{5000}));
    const auto close = reader->child(*frame(), QStringLiteral("Close"));
    ASSERT_TRUE(close);
    EXPECT_TRUE(reader->press(*close));
    EXPECT_EQ(application->process().waitForEnd(Milliseconds{5000}), 0) << application->process().output();
}

} // namespace
} // namespace nimbrale::test
