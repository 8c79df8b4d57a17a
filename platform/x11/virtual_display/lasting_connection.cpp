#include "platform/x11/virtual_display/lasting_connection.h"

#include "platform/x11/server/handles.h"

namespace nimbrale::x11 {

namespace {

xcb_atom_t markAtom(Connection& connection)
{
    return connection.atom("_NIMBRALE_LASTING");
}

// The identifier alone could be another window's by now.
bool isMarked(Connection& connection, xcb_window_t window)
{
    return window != XCB_WINDOW_NONE && connection.property32(window, markAtom(connection), XCB_ATOM_WINDOW) == window;
}

} // namespace

std::unique_ptr<LastingConnection> LastingConnection::open(const std::string& displayName)
{
    xcb_connection_t* const raw = xcb_connect(displayName.empty() ? nullptr : displayName.c_str(), nullptr);
    if (xcb_connection_has_error(raw)) {
        xcb_disconnect(raw);
        return nullptr;
    }
    std::unique_ptr<LastingConnection> connection(new LastingConnection(raw));
    xcb_set_close_down_mode(raw, XCB_CLOSE_DOWN_RETAIN_PERMANENT);
    connection->synchronize();
    return connection;
}

LastingConnection::~LastingConnection()
{
    xcb_disconnect(connection_);
}

void LastingConnection::removeWindows()
{
    xcb_set_close_down_mode(connection_, XCB_CLOSE_DOWN_DESTROY_ALL);
    synchronize();
}

void LastingConnection::synchronize()
{
    Reply<xcb_get_input_focus_reply_t>(
        xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
}

void LastingConnection::mark(Connection& connection, xcb_window_t window)
{
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, markAtom(connection), XCB_ATOM_WINDOW, 32, 1,
                        &window);
}

void raiseLasting(Connection& connection, xcb_window_t window)
{
    if (!isMarked(connection, window))
        return;
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    mayFail(connection.get(),
            xcb_configure_window_checked(connection.get(), window, XCB_CONFIG_WINDOW_STACK_MODE, &above));
    connection.flush();
}

void removeLasting(Connection& connection, xcb_window_t window)
{
    if (!isMarked(connection, window))
        return;
    mayFail(connection.get(), xcb_kill_client_checked(connection.get(), window));
    connection.flush();
}

} // namespace nimbrale::x11
