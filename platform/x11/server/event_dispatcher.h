#pragma once

#include "platform/x11/server/connection.h"

#include <functional>
#include <memory>
#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Reads the events of the main thread's connection from the toolkit's event loop and hands each to every handler.
/// Main thread only.
class EventDispatcher {
public:
    using Handler = std::function<void(const xcb_generic_event_t& event)>;

    /// `connection` must outlive the dispatcher. `onLost` is called once when the server has gone.
    EventDispatcher(Connection& connection, std::function<void()> onLost);
    ~EventDispatcher();
    EventDispatcher(const EventDispatcher&) = delete;
    EventDispatcher& operator=(const EventDispatcher&) = delete;

    /// The handler is called until the returned handle goes. It gets errors too (response type 0): a handler looks at
    /// the errors of its own requests only.
    [[nodiscard]] std::shared_ptr<void> add(Handler handler);
    /// Handles what has come. Called by the event loop; call it after waiting for a reply, which may have queued
    /// events without waking the loop.
    void dispatch();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace nimbrale::x11
