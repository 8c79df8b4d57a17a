// The computer's cameras as the portal of a sandbox hands them out: over a connection of its own, to who may use them.

#include "platform/desktop/device_access.h"
#include "tests/desktop/pipewire_fixture.h"
#include "tests/support/event_loop.h"
#include "tests/support/private_bus.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusUnixFileDescriptor>
#include <QFile>

#include <atomic>
#include <cstring>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

namespace nimbrale::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PortalCamerasTest : public PipewireTest {
protected:
    static void SetUpTestSuite()
    {
        PipewireTest::SetUpTestSuite();
        // As in a sandbox, where the daemon's socket is not.
        qputenv("PIPEWIRE_REMOTE", "no-such-socket");
        application = std::make_unique<QCoreApplication>(argumentCount, arguments);
    }
    static void TearDownTestSuite()
    {
        application.reset();
        PipewireTest::TearDownTestSuite();
    }
    void SetUp() override
    {
        PipewireTest::SetUp();
        if (IsSkipped() || HasFatalFailure())
            return;
        bus_ = PrivateBus::start(reason);
        ASSERT_TRUE(bus_) << reason;
        startPortal();
        QFile mark(folder_.filePath("sandbox"));
        ASSERT_TRUE(mark.open(QIODevice::WriteOnly));
        const QDBusConnection connection =
            QDBusConnection::connectToBus(QString::fromStdString(bus_->address()), "portal_cameras_test");
        access_ = std::make_unique<DeviceAccess>(DeviceKind::camera, connection, queue, mark.fileName().toStdString());
        ASSERT_TRUE(access_->hasPortal());
        known.push_back(std::make_unique<pipewire::KnownDevices>(queue, [this] { return access_->openCameras(); }));
        cameras = pipewire::createPipewireCameras(queue, *known.back(), [this](std::function<void(bool)> onAnswer) {
            access_->request(std::move(onAnswer));
        });
    }
    void TearDown() override
    {
        // Their threads may still ask.
        cameras.reset();
        known.clear();
        access_.reset();
        QDBusConnection::disconnectFromBus("portal_cameras_test");
        endPortal();
    }

    /// Does what is posted and what the toolkit has to do until the condition holds.
    template <typename Condition>
    [[nodiscard]] bool becomes(Condition condition, Milliseconds patience = Milliseconds{10'000})
    {
        return runUntil(
            [&] {
                queue.runPosted();
                return condition();
            },
            patience);
    }
    /// The user's answer to the portal's question.
    void answerNextQuestion(bool isYes) { isYes_ = isYes; }
    [[nodiscard]] std::optional<bool> requestAccess()
    {
        std::optional<bool> answer;
        cameras->requestAccess([&answer](bool isGranted) { answer = isGranted; });
        static_cast<void>(becomes([&] { return answer.has_value(); }));
        return answer;
    }
    [[nodiscard]] int connections() const { return connections_; }

private:
    /// Stands for the desktop's portal, in a thread of its own as it is a process of its own.
    void startPortal()
    {
        std::atomic<bool> isServing = false;
        portalThread_ = std::thread([this, &isServing] {
            BusProgram program(bus_->address());
            EXPECT_TRUE(program.serve("org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
                                      [&](const QDBusMessage& call) { return answerOf(program, call); }));
            isServing = true;
            static_cast<void>(runUntil([this] { return isEnding_.load(); }, Milliseconds{600'000}));
        });
        EXPECT_TRUE(waitUntil([&] { return isServing.load(); }, Milliseconds{5000}));
    }
    void endPortal()
    {
        isEnding_ = true;
        if (portalThread_.joinable())
            portalThread_.join();
    }
    QDBusMessage answerOf(BusProgram& program, const QDBusMessage& call)
    {
        if (call.member() == "OpenPipeWireRemote") {
            if (!isGranted_)
                return call.createErrorReply("org.freedesktop.portal.Error.NotAllowed", "not granted");
            const FileDescriptor connection = connectToDaemon();
            if (!connection)
                return call.createErrorReply(QDBusError::Failed, "no daemon");
            ++connections_;
            return call.createReply(QVariant::fromValue(QDBusUnixFileDescriptor(connection.get())));
        }
        const auto options = qdbus_cast<QVariantMap>(call.arguments().constLast());
        const QString path = "/org/freedesktop/portal/desktop/request/" + call.service().mid(1).replace('.', '_') +
                             "/" + options.value("handle_token").toString();
        isGranted_ = isYes_.load();
        program.signal(path, "org.freedesktop.portal.Request", "Response", {isYes_ ? 0U : 1U, QVariantMap()});
        return call.createReply(QVariant::fromValue(QDBusObjectPath(path)));
    }
    [[nodiscard]] static FileDescriptor connectToDaemon()
    {
        FileDescriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = pipewire->runtimeFolder() + "/pipewire-0";
        std::memcpy(address.sun_path, path.c_str(), std::min(path.size(), sizeof(address.sun_path) - 1));
        if (connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
            return {};
        return connection;
    }

    static inline int argumentCount = 1;
    static inline char name[5] = "test";
    static inline char* arguments[2] = {name, nullptr};
    static inline std::unique_ptr<QCoreApplication> application;

    QTemporaryDir folder_;
    std::unique_ptr<PrivateBus> bus_;
    std::unique_ptr<DeviceAccess> access_;
    std::thread portalThread_;
    std::atomic<bool> isEnding_ = false;
    std::atomic<bool> isYes_ = true;
    std::atomic<bool> isGranted_ = false;
    std::atomic<int> connections_ = 0;
};

TEST_F(PortalCamerasTest, WithoutThePortalsConnectionThereAreNone)
{
    const auto camera = plugIn({.id = "unreachable"});
    cameras = makeCameras();
    EXPECT_FALSE(becomes([&] { return !cameras->devices().empty(); }, Milliseconds{1000}));
}

TEST_F(PortalCamerasTest, AfterTheUsersYesTheyAreListedAndGivePictures)
{
    const auto camera = plugIn({.id = "granted", .name = "Granted camera"});
    EXPECT_FALSE(becomes([&] { return !cameras->devices().empty(); }, Milliseconds{500})) << "nobody has been asked";
    EXPECT_EQ(requestAccess(), true);
    ASSERT_TRUE(becomes([&] { return isListed("granted"); }));
    EXPECT_THAT(cameras->devices(), ElementsAre(CameraDevice{"granted", "Granted camera"}));
    EXPECT_EQ(connections(), 1);
    CameraWatcher watcher(*cameras, "granted");
    ASSERT_TRUE(becomes([&] { return watcher.count() >= 5; }));
    EXPECT_EQ(connections(), 2);
    EXPECT_THAT(watcher.losses, IsEmpty());
    watcher.close();
    CameraWatcher again(*cameras, "granted");
    EXPECT_TRUE(becomes([&] { return again.count() >= 1; }));
}

TEST_F(PortalCamerasTest, AfterTheUsersNoThereAreNoneUntilTheAnswerIsAnother)
{
    const auto camera = plugIn({.id = "refused"});
    answerNextQuestion(false);
    EXPECT_TRUE(cameras->devices().empty());
    EXPECT_EQ(requestAccess(), false);
    EXPECT_FALSE(becomes([&] { return !cameras->devices().empty(); }, Milliseconds{1000}));
    EXPECT_EQ(connections(), 0);
    CameraWatcher watcher(*cameras, "refused");
    ASSERT_TRUE(becomes([&] { return !watcher.losses.empty(); }));
    EXPECT_EQ(watcher.count(), 0);
    answerNextQuestion(true);
    EXPECT_EQ(requestAccess(), true);
    EXPECT_TRUE(becomes([&] { return isListed("refused"); }));
}

TEST_F(PortalCamerasTest, ADaemonThatComesBackIsReachedThroughThePortalAgain)
{
    auto camera = plugIn({.id = "lasting"});
    EXPECT_TRUE(cameras->devices().empty());
    EXPECT_EQ(requestAccess(), true);
    ASSERT_TRUE(becomes([&] { return isListed("lasting"); }));
    CameraWatcher watcher(*cameras, "lasting");
    ASSERT_TRUE(becomes([&] { return watcher.count() >= 1; }));
    pipewire->crash();
    camera->crash();
    ASSERT_TRUE(becomes([&] { return cameras->devices().empty() && !watcher.losses.empty(); }));
    ASSERT_TRUE(pipewire->startAgain(reason)) << reason;
    camera = plugIn({.id = "lasting"});
    EXPECT_TRUE(becomes([&] { return isListed("lasting"); }));
}

TEST_F(PortalCamerasTest, NothingIsLeftOpen)
{
    const auto camera = plugIn({.id = "counted"});
    EXPECT_EQ(requestAccess(), true);
    const auto openFiles = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    ASSERT_TRUE(becomes([&] { return isListed("counted"); }));
    std::ptrdiff_t before = 0;
    for (int round = 0; round < 6; ++round) {
        CameraWatcher watcher(*cameras, "counted");
        ASSERT_TRUE(becomes([&] { return watcher.count() >= 1; })) << round;
        watcher.close();
        if (round == 0)
            before = openFiles();
    }
    EXPECT_EQ(openFiles(), before);
}

} // namespace
} // namespace nimbrale::test
