#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"

#include <string_view>
#include <xcb/xcb.h>

namespace nimbrale::test {

/// The window by which a window manager goes by that name, for as long as it is there.
[[nodiscard]] inline x11::OwnedWindow nameManager(x11::Connection& connection, std::string_view name)
{
    xcb_connection_t* const raw = connection.get();
    x11::OwnedWindow manager(connection, connection.newId());
    const xcb_window_t id = manager.get();
    xcb_create_window(raw, XCB_COPY_FROM_PARENT, id, connection.root(), -1, -1, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                      XCB_COPY_FROM_PARENT, 0, nullptr);
    xcb_change_property(raw, XCB_PROP_MODE_REPLACE, connection.root(), connection.atom("_NET_SUPPORTING_WM_CHECK"),
                        XCB_ATOM_WINDOW, 32, 1, &id);
    xcb_change_property(raw, XCB_PROP_MODE_REPLACE, id, connection.atom("_NET_WM_NAME"), connection.atom("UTF8_STRING"),
                        8, std::uint32_t(name.size()), name.data());
    connection.synchronize();
    return manager;
}

} // namespace nimbrale::test
