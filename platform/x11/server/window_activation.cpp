#include "platform/x11/server/window_activation.h"

#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"

#include <array>
#include <memory>
#include <string_view>

namespace nimbrale::x11 {

namespace {

constexpr std::uint32_t fromApplication = 1;

xcb_window_t rootOf(xcb_connection_t* connection, xcb_window_t window)
{
    const Reply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(connection, xcb_get_geometry(connection, window), nullptr));
    return geometry ? geometry->root : xcb_window_t{XCB_WINDOW_NONE};
}

xcb_atom_t atomNamed(xcb_connection_t* connection, std::string_view name)
{
    const Reply<xcb_intern_atom_reply_t> atom(xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.data()), nullptr));
    return atom ? atom->atom : xcb_atom_t{XCB_ATOM_NONE};
}

/// Every change of a property bears the server's time.
std::optional<EventTime> timeOfAChange(xcb_connection_t* connection, const xcb_screen_t& screen)
{
    const xcb_window_t window = xcb_generate_id(connection);
    const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(connection, 0, window, screen.root, 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                      XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8, 0, nullptr);
    xcb_flush(connection);
    while (const Reply<xcb_generic_event_t> event{xcb_wait_for_event(connection)}) {
        if (eventType(*event) == XCB_PROPERTY_NOTIFY)
            return eventAs<xcb_property_notify_event_t>(*event).time;
        if (isError(*event))
            return std::nullopt;
    }
    return std::nullopt;
}

struct Disconnecter {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
};

} // namespace

void activateWindow(xcb_connection_t* connection, xcb_window_t window, EventTime cause)
{
    const xcb_window_t root = rootOf(connection, window);
    if (root == XCB_WINDOW_NONE)
        return;
    const xcb_atom_t userTime = atomNamed(connection, "_NET_WM_USER_TIME");
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, userTime, XCB_ATOM_CARDINAL, 32, 1, &cause);
    xcb_client_message_event_t message = {};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window;
    message.type = atomNamed(connection, "_NET_ACTIVE_WINDOW");
    message.data.data32[0] = fromApplication;
    message.data.data32[1] = cause;
    xcb_send_event(connection, 0, root, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&message));
    xcb_flush(connection);
}

std::optional<EventTime> currentServerTime(const std::string& displayName)
{
    int screenNumber = 0;
    const std::unique_ptr<xcb_connection_t, Disconnecter> connection(
        xcb_connect(displayName.empty() ? nullptr : displayName.c_str(), &screenNumber));
    if (xcb_connection_has_error(connection.get()) != 0)
        return std::nullopt;
    xcb_screen_iterator_t screen = xcb_setup_roots_iterator(xcb_get_setup(connection.get()));
    for (; screenNumber > 0 && screen.rem > 1; --screenNumber)
        xcb_screen_next(&screen);
    return timeOfAChange(connection.get(), *screen.data);
}

} // namespace nimbrale::x11
