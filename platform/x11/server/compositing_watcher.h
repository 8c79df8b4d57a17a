#pragma once

#include "platform/observers.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/server/event_routes.h"

#include <functional>
#include <memory>
#include <string>
#include <xcb/xfixes.h>

namespace nimbrale::x11 {

/// Knows whether a compositing manager runs, that is, whether windows with alpha are translucent. Several may live on
/// one connection. Thread of its connection only.
class CompositingWatcher {
public:
    /// Both must outlive it.
    CompositingWatcher(Connection& connection, EventDispatcher& events);
    CompositingWatcher(Connection& connection, EventRoutes& events);
    CompositingWatcher(const CompositingWatcher&) = delete;
    CompositingWatcher& operator=(const CompositingWatcher&) = delete;

    /// As the events tell that have been dispatched.
    [[nodiscard]] bool isComposited() const { return manager_ != XCB_WINDOW_NONE; }
    /// A window of the compositing manager that runs now, whether or not that has been told yet; XCB_WINDOW_NONE
    /// without one. Waits for the server.
    [[nodiscard]] xcb_window_t askManager() const;
    /// `observer` is called after a compositing manager came, went, or took over from another.
    [[nodiscard]] Subscription observeChanges(std::function<void()> observer)
    {
        return observers_.add(std::move(observer));
    }

private:
    explicit CompositingWatcher(Connection& connection);
    template <typename Events>
    void listen(Events& events);
    void handle(const xcb_xfixes_selection_notify_event_t& change);

    Connection& connection_;
    xcb_atom_t selection_;
    xcb_window_t manager_ = XCB_WINDOW_NONE;
    Observers observers_;
    Subscription handler_;
};

} // namespace nimbrale::x11
