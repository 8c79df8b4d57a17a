#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/server/handles.h"

#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

using WindowAttributes = Reply<xcb_get_window_attributes_reply_t>;

/// Of each of the windows, null for one that has gone. In one round trip: there may be tens of thousands, and to wait
/// for each would take seconds. Thread of the connection only.
[[nodiscard]] std::vector<WindowAttributes> attributesOf(Connection& connection,
                                                         const std::vector<xcb_window_t>& windows);

/// Whether a window is shown, its parents included.
[[nodiscard]] bool isViewable(const WindowAttributes& attributes);

} // namespace nimbrale::x11
