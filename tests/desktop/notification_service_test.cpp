// Notifications by what the session's bus offers, on a bus of the test's own.

#include "platform/desktop/notification_service.h"
#include "tests/desktop/session_bus_fixture.h"

#include <gmock/gmock.h>

namespace nimbrale::test {
namespace {

using testing::SizeIs;

class NotificationServiceTest : public SessionBusTest {
protected:
    [[nodiscard]] static std::unique_ptr<FakeService> service(bool accepts)
    {
        return std::make_unique<FakeService>(bus->address(), "org.freedesktop.Notifications",
                                             "/org/freedesktop/Notifications", accepts);
    }

    void show()
    {
        notifications_.show({"Title", "Share “🎯 Share this · Screen area 400×300”."}, [this] { ++unshown_; });
    }

    NotificationService notifications_;
    int unshown_ = 0;
};

TEST_F(NotificationServiceTest, TheDesktopsServiceIsGivenTitleAndText)
{
    const auto desktop = service(true);
    show();
    ASSERT_TRUE(runUntil([&] { return !desktop->calls.empty(); }));
    letPass();
    ASSERT_THAT(desktop->calls, SizeIs(1));
    const QDBusMessage& call = desktop->calls.front();
    EXPECT_EQ(call.interface(), "org.freedesktop.Notifications");
    EXPECT_EQ(call.member(), "Notify");
    EXPECT_EQ(call.signature(), "susssasa{sv}i");
    EXPECT_EQ(call.arguments().at(1).toUInt(), 0U);
    EXPECT_EQ(call.arguments().at(3).toString(), "Title");
    EXPECT_EQ(call.arguments().at(4).toString(), "Share “🎯 Share this · Screen area 400×300”.");
    EXPECT_EQ(unshown_, 0);
}

TEST_F(NotificationServiceTest, WithoutAServiceNobodyWasTold)
{
    show();
    EXPECT_EQ(unshown_, 0) << "told later";
    EXPECT_TRUE(runUntil([&] { return unshown_ > 0; }));
    letPass();
    EXPECT_EQ(unshown_, 1);
}

TEST_F(NotificationServiceTest, WhereTheServiceRefusesNobodyWasTold)
{
    const auto desktop = service(false);
    show();
    EXPECT_TRUE(runUntil([&] { return unshown_ > 0; }));
    EXPECT_THAT(desktop->calls, SizeIs(1));
}

TEST_F(NotificationServiceTest, AnAnswerThatComesAfterItsEndIsNobodys)
{
    const auto desktop = service(false);
    int unshown = 0;
    {
        NotificationService ending;
        ending.show({"Title", "Text"}, [&unshown] { ++unshown; });
    }
    EXPECT_TRUE(runUntil([&] { return !desktop->calls.empty(); }));
    letPass();
    EXPECT_EQ(unshown, 0);
}

/// In a process of its own, which meets no bus. Runs before all others, while there is but one thread.
TEST(NotificationServiceDeathTest, WithoutABusNobodyWasTold)
{
    const auto show = [] {
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/no/such/bus");
        int count = 1;
        char name[] = "test";
        char* arguments[] = {name, nullptr};
        const QCoreApplication application(count, arguments);
        NotificationService notifications;
        bool wasTold = true;
        notifications.show({"Title", "Text"}, [&wasTold] { wasTold = false; });
        std::_Exit(runUntil([&] { return !wasTold; }) ? EXIT_SUCCESS : EXIT_FAILURE);
    };
    EXPECT_EXIT(show(), testing::ExitedWithCode(EXIT_SUCCESS), "");
}

} // namespace
} // namespace nimbrale::test
