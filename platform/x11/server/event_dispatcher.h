#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_routes.h"

#include <functional>
#include <initializer_list>
#include <memory>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Reads the events of the main thread's connection from the toolkit's event loop and brings each to those who asked
/// for its type. Main thread only.
class EventDispatcher {
public:
    using Handler = EventRoutes::Handler;

    /// `connection` must outlive the dispatcher. `onLost` is called once when the server has gone.
    EventDispatcher(Connection& connection, std::function<void()> onLost);
    ~EventDispatcher();
    EventDispatcher(const EventDispatcher&) = delete;
    EventDispatcher& operator=(const EventDispatcher&) = delete;

    /// As `EventRoutes::add`.
    [[nodiscard]] Subscription add(std::initializer_list<int> types, Handler handler,
                                   SentEvents sent = SentEvents::ignored);
    /// Handles what has come. Called by the event loop; call it after waiting for a reply, which may have queued
    /// events without waking the loop.
    void dispatch();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace nimbrale::x11
