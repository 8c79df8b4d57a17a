#include "platform/x11/server/window_events.h"

#include "platform/x11/server/handles.h"

namespace nimbrale::x11 {

void addWindowEvents(Connection& connection, xcb_window_t window, std::uint32_t events)
{
    const Reply<xcb_get_window_attributes_reply_t> attributes(xcb_get_window_attributes_reply(
        connection.get(), xcb_get_window_attributes(connection.get(), window), nullptr));
    if (!attributes)
        return;
    const std::uint32_t mask = attributes->your_event_mask | events;
    // The window may be gone by now, which is for whoever deals with it to notice.
    mayFail(connection.get(), xcb_change_window_attributes_checked(connection.get(), window, XCB_CW_EVENT_MASK, &mask));
}

} // namespace nimbrale::x11
