// Who may use cameras and microphones, inside and outside of a sandbox, on a bus of the test's own.

#include "platform/desktop/device_access.h"
#include "platform/desktop/qt_main_queue.h"
#include "tests/desktop/session_bus_fixture.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QFile>
#include <QTemporaryDir>

#include <gmock/gmock.h>
#include <optional>
#include <unistd.h>

namespace nimbrale::test {
namespace {

using testing::SizeIs;

class DeviceAccessTest : public SessionBusTest {
protected:
    void SetUp() override
    {
        SessionBusTest::SetUp();
        QFile mark(folder_.filePath("sandbox"));
        ASSERT_TRUE(mark.open(QIODevice::WriteOnly));
    }

    [[nodiscard]] std::unique_ptr<DeviceAccess> accessInSandbox(DeviceKind kind = DeviceKind::camera)
    {
        return std::make_unique<DeviceAccess>(kind, QDBusConnection::sessionBus(), queue_,
                                              folder_.filePath("sandbox").toStdString());
    }
    [[nodiscard]] std::unique_ptr<DeviceAccess> accessOutside()
    {
        return std::make_unique<DeviceAccess>(DeviceKind::microphone, QDBusConnection::sessionBus(), queue_,
                                              folder_.filePath("no such file").toStdString());
    }
    /// Stands for the desktop's portal, which notes the calls.
    void startPortal(bool asks = true)
    {
        portal_ = std::make_unique<BusProgram>(bus->address());
        ASSERT_TRUE(portal_->serve("org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
                                   [this, asks](const QDBusMessage& call) {
                                       calls_.push_back(call);
                                       return asks ? call.createReply(
                                                         QVariant::fromValue(QDBusObjectPath(pathOfAnswer(call))))
                                                   : call.createErrorReply(QDBusError::Failed, "no");
                                   }));
    }
    void ask(DeviceAccess& access)
    {
        access.request([this](bool isGranted) { answers_.push_back(isGranted); });
    }
    [[nodiscard]] static QString pathOfAnswer(const QDBusMessage& call)
    {
        const auto options = qdbus_cast<QVariantMap>(call.arguments().constLast());
        return "/org/freedesktop/portal/desktop/request/" + call.service().mid(1).replace('.', '_') + "/" +
               options.value("handle_token").toString();
    }
    void answer(const QDBusMessage& call, const QVariantList& values)
    {
        portal_->signal(pathOfAnswer(call), "org.freedesktop.portal.Request", "Response", values);
    }

    QtMainQueue queue_;
    std::unique_ptr<BusProgram> portal_;
    std::vector<QDBusMessage> calls_;
    std::vector<bool> answers_;

private:
    QTemporaryDir folder_;
};

TEST_F(DeviceAccessTest, OutsideOfASandboxItIsGrantedWithoutAQuestionAndLater)
{
    startPortal();
    const auto access = accessOutside();
    ask(*access);
    EXPECT_THAT(answers_, SizeIs(0)) << "told later";
    ASSERT_TRUE(runUntil([&] { return !answers_.empty(); }));
    letPass();
    EXPECT_EQ(answers_, std::vector{true});
    EXPECT_THAT(calls_, SizeIs(0));
}

TEST_F(DeviceAccessTest, InASandboxTheUserIsAskedAndTheAnswerTold)
{
    startPortal();
    const auto access = accessInSandbox();
    for (const auto& [response, isGranted] : {std::pair(0U, true), std::pair(1U, false), std::pair(2U, false)}) {
        calls_.clear();
        answers_.clear();
        ask(*access);
        ASSERT_TRUE(runUntil([&] { return !calls_.empty(); }));
        EXPECT_EQ(calls_.front().interface(), "org.freedesktop.portal.Camera");
        EXPECT_EQ(calls_.front().member(), "AccessCamera");
        EXPECT_EQ(calls_.front().signature(), "a{sv}");
        letPass();
        EXPECT_THAT(answers_, SizeIs(0)) << "nobody has answered yet";
        answer(calls_.front(), {response, QVariantMap()});
        ASSERT_TRUE(runUntil([&] { return !answers_.empty(); }));
        EXPECT_EQ(answers_, std::vector{isGranted});
        // A second answer to the same question is nobody's.
        answer(calls_.front(), {0U, QVariantMap()});
        letPass();
        EXPECT_THAT(answers_, SizeIs(1));
    }
}

TEST_F(DeviceAccessTest, TheMicrophoneIsAskedForAsADeviceOfThisProcess)
{
    startPortal();
    const auto access = accessInSandbox(DeviceKind::microphone);
    for (const auto& [response, isGranted] : {std::pair(0U, true), std::pair(1U, false)}) {
        calls_.clear();
        answers_.clear();
        ask(*access);
        ASSERT_TRUE(runUntil([&] { return !calls_.empty(); }));
        EXPECT_EQ(calls_.front().interface(), "org.freedesktop.portal.Device");
        EXPECT_EQ(calls_.front().member(), "AccessDevice");
        ASSERT_EQ(calls_.front().signature(), "uasa{sv}");
        EXPECT_EQ(calls_.front().arguments().at(0).toUInt(), static_cast<uint>(getpid()));
        EXPECT_EQ(calls_.front().arguments().at(1).toStringList(), QStringList{"microphone"});
        answer(calls_.front(), {response, QVariantMap()});
        ASSERT_TRUE(runUntil([&] { return !answers_.empty(); }));
        EXPECT_EQ(answers_, std::vector{isGranted});
    }
}

TEST_F(DeviceAccessTest, EachOfTwoQuestionsGetsItsOwnAnswer)
{
    startPortal();
    const auto access = accessInSandbox();
    std::optional<bool> first;
    std::optional<bool> second;
    access->request([&first](bool isGranted) { first = isGranted; });
    access->request([&second](bool isGranted) { second = isGranted; });
    ASSERT_TRUE(runUntil([&] { return calls_.size() == 2; }));
    answer(calls_[1], {1U, QVariantMap()});
    ASSERT_TRUE(runUntil([&] { return second.has_value(); }));
    EXPECT_EQ(second, false);
    EXPECT_EQ(first, std::nullopt);
    answer(calls_[0], {0U, QVariantMap()});
    ASSERT_TRUE(runUntil([&] { return first.has_value(); }));
    EXPECT_EQ(first, true);
}

TEST_F(DeviceAccessTest, AnAnswerWithoutSenseIsNoGrant)
{
    startPortal();
    const auto access = accessInSandbox();
    ask(*access);
    ASSERT_TRUE(runUntil([&] { return !calls_.empty(); }));
    answer(calls_.front(), {});
    ASSERT_TRUE(runUntil([&] { return !answers_.empty(); }));
    EXPECT_EQ(answers_, std::vector{false});
}

TEST_F(DeviceAccessTest, WithoutAPortalThatAsksItIsGranted)
{
    const auto access = accessInSandbox();
    ask(*access);
    ASSERT_TRUE(runUntil([&] { return !answers_.empty(); }));
    startPortal(false);
    ask(*access);
    ASSERT_TRUE(runUntil([&] { return answers_.size() == 2; }));
    EXPECT_EQ(answers_, (std::vector{true, true}));
    EXPECT_THAT(calls_, SizeIs(1));
}

TEST_F(DeviceAccessTest, AnAnswerThatComesAfterTheEndIsNobodys)
{
    startPortal();
    auto access = accessInSandbox();
    ask(*access);
    ASSERT_TRUE(runUntil([&] { return !calls_.empty(); }));
    answer(calls_.front(), {0U, QVariantMap()});
    access.reset();
    letPass();
    EXPECT_THAT(answers_, SizeIs(0));
}

} // namespace
} // namespace nimbrale::test
