#pragma once

#include "platform/x11/server/connection.h"

#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Bottom to top; none of a window that has gone. Waits for the server. Thread of the connection only.
[[nodiscard]] std::vector<xcb_window_t> childrenOf(Connection& connection, xcb_window_t window);

/// The child of the root that the window is or lies in; XCB_NONE where there is none. Waits for the server for each
/// window in between. Thread of the connection only.
[[nodiscard]] xcb_window_t topLevelOf(Connection& connection, xcb_window_t window);

} // namespace nimbrale::x11
