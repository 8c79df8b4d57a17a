#pragma once

#include "platform/x11/server/connection.h"

#include <xcb/xcb.h>

namespace nimbrale::x11 {

enum class WindowMaker {
    server, ///< itself: of the root's children the composite overlay window, and the server's own screen saver
    thisConnection,
    others ///< other connections, of this process too
};

/// Who made a window, by its identifier alone: nothing is asked.
[[nodiscard]] inline WindowMaker makerOf(const Connection& connection, xcb_window_t window)
{
    const xcb_setup_t& setup = *xcb_get_setup(connection.get());
    const xcb_window_t maker = window & ~setup.resource_id_mask;
    if (maker == 0)
        return WindowMaker::server;
    return maker == setup.resource_id_base ? WindowMaker::thisConnection : WindowMaker::others;
}

} // namespace nimbrale::x11
