#include "platform/x11/server/compositing_watcher.h"

#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"

#include <utility>
#include <xcb/xfixes.h>

namespace nimbrale::x11 {

CompositingWatcher::CompositingWatcher(Connection& connection)
    : connection_(connection), selection_(connection.atom("_NET_WM_CM_S" + std::to_string(connection.screenNumber())))
{}

template <typename Events>
void CompositingWatcher::listen(Events& events)
{
    handler_ = events.add({connection_.extensions().fixes.firstEvent + XCB_XFIXES_SELECTION_NOTIFY},
                          [this](const auto& event) { handle(eventAs<xcb_xfixes_selection_notify_event_t>(event)); });
    xcb_xfixes_select_selection_input(connection_.get(), connection_.root(), selection_,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    manager_ = askManager();
}

CompositingWatcher::CompositingWatcher(Connection& connection, EventDispatcher& events) : CompositingWatcher(connection)
{
    listen(events);
}

CompositingWatcher::CompositingWatcher(Connection& connection, EventRoutes& events) : CompositingWatcher(connection)
{
    listen(events);
}

xcb_window_t CompositingWatcher::askManager() const
{
    const Reply<xcb_get_selection_owner_reply_t> owner(xcb_get_selection_owner_reply(
        connection_.get(), xcb_get_selection_owner(connection_.get(), selection_), nullptr));
    return owner ? owner->owner : xcb_window_t{XCB_WINDOW_NONE};
}

void CompositingWatcher::handle(const xcb_xfixes_selection_notify_event_t& change)
{
    if (change.selection != selection_)
        return;
    const bool isOwned = change.subtype == XCB_XFIXES_SELECTION_EVENT_SET_SELECTION_OWNER;
    const xcb_window_t manager = isOwned ? change.owner : xcb_window_t{XCB_WINDOW_NONE};
    if (std::exchange(manager_, manager) != manager)
        observers_.notify();
}

} // namespace nimbrale::x11
