#pragma once

#include "platform/event_time.h"

#include <optional>
#include <string>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Asks the window manager to bring a window that is shown to the front and to give it the keyboard, for something that
/// the user did at `cause`. The manager refuses what is older than what the user did in the window that has the
/// keyboard now. `connection` is the one that showed the window, so that the manager hears of both in order.
void activateWindow(xcb_connection_t* connection, xcb_window_t window, EventTime cause);

/// The server's clock now. Takes a connection of its own for it, and a few round trips. Absent when there is no server.
[[nodiscard]] std::optional<EventTime> currentServerTime(const std::string& displayName = {});

} // namespace nimbrale::x11
