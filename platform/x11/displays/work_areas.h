#pragma once

#include "platform/pixel_rect.h"
#include "platform/x11/displays/free_areas.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/window_events.h"

#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Asks the server what the panels and menu bars of the desktop leave free of each display. Main thread only.
class WorkAreas {
public:
    explicit WorkAreas(Connection& connection);

    /// The free part of each of `displays`, in root pixels, in the same order. Waits for the server.
    [[nodiscard]] std::vector<PixelRect> freeAreas(const std::vector<PixelRect>& displays);
    /// Whether a change of that property of that window may change what `freeAreas` says.
    [[nodiscard]] bool dependOn(xcb_window_t window, xcb_atom_t property) const;

private:
    [[nodiscard]] SpaceClaims claims();
    [[nodiscard]] std::vector<Strut> struts();

    Connection& connection_;
    std::vector<WindowEvents> strutWindows_;
    xcb_atom_t workArea_;
    xcb_atom_t perDisplay_ = XCB_ATOM_NONE;
    xcb_atom_t clientList_;
    xcb_atom_t desktop_;
    xcb_atom_t strutPartial_;
    xcb_atom_t strut_;
};

} // namespace nimbrale::x11
