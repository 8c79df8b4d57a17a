#pragma once

#include "platform/x11/server/connection.h"

#include <cstdint>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Adds `events` (xcb event mask bits) to what this connection hears of `window`. A connection has one mask for each
/// window, so whoever sets it outright ends what others of the same connection asked for.
void addWindowEvents(Connection& connection, xcb_window_t window, std::uint32_t events);

} // namespace nimbrale::x11
