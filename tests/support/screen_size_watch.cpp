#include "tests/support/screen_size_watch.h"

#include "tests/support/x_reply.h"

#include <algorithm>
#include <xcb/xcb.h>

namespace nimbrale::test {

ScreenSizeWatch::ScreenSizeWatch(const PrivateDesktop& desktop)
    : connection_(xcb_connect(desktop.displayName().c_str(), nullptr)), root_(desktop.screen().root)
{
    const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(connection_, root_, XCB_CW_EVENT_MASK, &events);
    // What happens from here on is told.
    Reply<xcb_get_input_focus_reply_t>(
        xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
}

ScreenSizeWatch::~ScreenSizeWatch()
{
    xcb_disconnect(connection_);
}

const std::vector<QSize>& ScreenSizeWatch::sizes()
{
    while (const auto event = Reply<xcb_generic_event_t>(xcb_poll_for_event(connection_))) {
        if ((event->response_type & 0x7f) != XCB_CONFIGURE_NOTIFY)
            continue;
        const auto* const change = reinterpret_cast<const xcb_configure_notify_event_t*>(event.get());
        if (change->window == root_)
            sizes_.emplace_back(change->width, change->height);
    }
    return sizes_;
}

bool ScreenSizeWatch::hasSeen(QSize size)
{
    return std::ranges::find(sizes(), size) != sizes().end();
}

} // namespace nimbrale::test
