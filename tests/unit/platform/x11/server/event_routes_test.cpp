#include "platform/x11/server/event_routes.h"

#include "platform/file_descriptor.h"
#include "platform/x11/server/sent_event_filter.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

using namespace nimbrale;
using testing::ElementsAre;

namespace {

constexpr std::uint8_t sent = 0x80;

xcb_generic_event_t eventOfType(int type)
{
    xcb_generic_event_t event{};
    event.response_type = static_cast<std::uint8_t>(type);
    return event;
}

class EventRoutesTest : public testing::Test {
protected:
    [[nodiscard]] x11::EventRoutes::Handler note(const std::string& name)
    {
        return [this, name](const auto& event) { calls.push_back(name + " " + std::to_string(event.response_type)); };
    }

    x11::EventRoutes routes;
    std::vector<std::string> calls;
};

TEST_F(EventRoutesTest, anEventComesToThoseWhoAskedForItsTypeInTheirOrder)
{
    const auto first = routes.add({XCB_EXPOSE, XCB_MAP_NOTIFY}, note("first"));
    const auto second = routes.add({XCB_MAP_NOTIFY}, note("second"));
    routes.deliver(eventOfType(XCB_MAP_NOTIFY));
    routes.deliver(eventOfType(XCB_EXPOSE));
    routes.deliver(eventOfType(XCB_UNMAP_NOTIFY));
    EXPECT_THAT(calls, ElementsAre("first 19", "second 19", "first 12"));
}

TEST_F(EventRoutesTest, aHandlerWhoseSubscriptionWentIsNotCalledAnyMore)
{
    auto gone = routes.add({XCB_EXPOSE}, note("gone"));
    Subscription goesNext = routes.add({XCB_EXPOSE}, note("goes next"));
    const auto ends = routes.add({XCB_MAP_NOTIFY}, [&](const auto&) { goesNext.reset(); });
    routes.deliver(eventOfType(XCB_EXPOSE));
    gone.reset();
    routes.deliver(eventOfType(XCB_MAP_NOTIFY));
    routes.deliver(eventOfType(XCB_EXPOSE));
    EXPECT_THAT(calls, ElementsAre("gone 12", "goes next 12"));
}

TEST_F(EventRoutesTest, aHandlerMayAddOneForTheSameType)
{
    Subscription added;
    const auto adds = routes.add({XCB_EXPOSE}, [&](const auto&) {
        if (!added)
            added = routes.add({XCB_EXPOSE}, note("added"));
    });
    routes.deliver(eventOfType(XCB_EXPOSE));
    EXPECT_THAT(calls, ElementsAre());
    routes.deliver(eventOfType(XCB_EXPOSE));
    EXPECT_THAT(calls, ElementsAre("added 12"));
}

TEST_F(EventRoutesTest, whatAClientSentComesOnlyToThoseWhoAskForIt)
{
    const auto believesTheServer = routes.add({XCB_CLIENT_MESSAGE, XCB_UNMAP_NOTIFY}, note("server"));
    const auto hearsClients =
        routes.add({XCB_CLIENT_MESSAGE, XCB_UNMAP_NOTIFY}, note("clients"), x11::SentEvents::delivered);
    routes.deliver(eventOfType(XCB_UNMAP_NOTIFY | sent));
    routes.deliver(eventOfType(XCB_UNMAP_NOTIFY));
    EXPECT_THAT(calls, ElementsAre("clients 146", "server 18", "clients 18"));
}

TEST_F(EventRoutesTest, theToolkitsWindowsGetOfSentEventsOnlyThoseThatClientsSpeakWith)
{
    int argumentCount = 1;
    char name[] = "test";
    char* arguments[] = {name, nullptr};
    const QCoreApplication application(argumentCount, arguments);
    x11::SentEventFilter filter;
    const auto isKept = [&](int type) {
        xcb_generic_event_t event = eventOfType(type);
        qintptr result = 0;
        return filter.nativeEventFilter("xcb_generic_event_t", &event, &result);
    };
    for (const int type :
         {XCB_BUTTON_PRESS, XCB_KEY_PRESS, XCB_UNMAP_NOTIFY, XCB_DESTROY_NOTIFY, XCB_PROPERTY_NOTIFY}) {
        EXPECT_TRUE(isKept(type | sent)) << type;
        EXPECT_FALSE(isKept(type)) << type;
    }
    for (const int type :
         {XCB_CLIENT_MESSAGE, XCB_SELECTION_CLEAR, XCB_SELECTION_REQUEST, XCB_SELECTION_NOTIFY, XCB_CONFIGURE_NOTIFY})
        EXPECT_FALSE(isKept(type | sent)) << type;
}

std::vector<std::string> logged;

TEST_F(EventRoutesTest, anErrorIsLoggedOnceWithItsRequestAndIsNoEvent)
{
    logged.clear();
    const auto previous = qInstallMessageHandler([](QtMsgType, const QMessageLogContext& context, const QString& text) {
        logged.push_back(std::string(context.category) + ": " + text.toStdString());
    });
    xcb_generic_error_t error{};
    error.error_code = XCB_WINDOW;
    error.major_code = 18;
    error.minor_code = 2;
    error.resource_id = 0x1234;
    const auto& asEvent = reinterpret_cast<const xcb_generic_event_t&>(error);
    routes.deliver(asEvent);
    routes.deliver(asEvent);
    error.error_code = XCB_ATOM;
    routes.deliver(asEvent);
    qInstallMessageHandler(previous);
    EXPECT_THAT(logged, ElementsAre("Nimbrale.x11: The X server refused request 18.2 on resource 0x1234 with error 3",
                                    "Nimbrale.x11: The X server refused request 18.2 on resource 0x1234 with error 5"));
}

TEST(FileDescriptorTest, closesWhatItOwnsOnce)
{
    const auto isOpen = [](int descriptor) { return fcntl(descriptor, F_GETFD) >= 0; };
    FileDescriptor owner(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const int first = owner.get();
    ASSERT_TRUE(isOpen(first));
    FileDescriptor other(std::move(owner));
    EXPECT_EQ(owner.get(), -1);
    EXPECT_TRUE(isOpen(first));
    other = FileDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_FALSE(isOpen(first));
    const int second = other.release();
    EXPECT_FALSE(other);
    EXPECT_TRUE(isOpen(second));
    FileDescriptor(second).reset();
    EXPECT_FALSE(isOpen(second));
}

} // namespace
