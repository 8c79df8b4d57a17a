#pragma once

#include "platform/pixel_rect.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/window_events.h"

#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// What the panels and menu bars of the desktop leave free of each display.
///
/// `_NET_WORKAREA` is one rectangle for all displays together and counts for a lone display only. For several, some
/// window managers tell a rectangle each, and otherwise the panels say themselves which edges they take. Main thread
/// only.
class WorkAreas {
public:
    explicit WorkAreas(Connection& connection);

    /// The free part of each of `displays`, in pixels of the root, in the same order. A display that would be left
    /// without any stays whole.
    [[nodiscard]] std::vector<PixelRect> freeAreas(const std::vector<PixelRect>& displays);
    /// Whether a change of that property of that window may change what `freeAreas` says.
    [[nodiscard]] bool dependOn(xcb_window_t window, xcb_atom_t property) const;

private:
    struct Strut {
        std::uint32_t left, right, top, bottom;
        std::uint32_t leftStart, leftEnd, rightStart, rightEnd, topStart, topEnd, bottomStart, bottomEnd;
    };

    [[nodiscard]] std::vector<std::uint32_t> values(xcb_window_t window, xcb_atom_t property, xcb_atom_t type) const;
    [[nodiscard]] std::vector<PixelRect> rectangles(xcb_atom_t property) const;
    [[nodiscard]] std::vector<Strut> struts();
    [[nodiscard]] std::uint32_t currentDesktop() const;
    [[nodiscard]] static PixelRect without(const PixelRect& display, const Strut& strut, const PixelRect& screen);

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
