#include "platform/x11/root_events.h"

#include "platform/x11/handles.h"

namespace nimbrale::x11 {

void addRootEventMask(Connection& connection, std::uint32_t mask)
{
    const Reply<xcb_get_window_attributes_reply_t> attributes(xcb_get_window_attributes_reply(
        connection.get(), xcb_get_window_attributes(connection.get(), connection.root()), nullptr));
    const std::uint32_t all = mask | (attributes ? attributes->your_event_mask : 0);
    xcb_change_window_attributes(connection.get(), connection.root(), XCB_CW_EVENT_MASK, &all);
}

} // namespace nimbrale::x11
