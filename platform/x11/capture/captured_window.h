#pragma once

#include "platform/screen_capture.h"
#include "platform/x11/server/pixel_region.h"

#include <xcb/damage.h>
#include <xcb/render.h>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Whose a top-level window is, as the content filters need it.
struct WindowOwner {
    /// 0 where the server does not tell.
    ProcessID process = 0;
    /// The window, or one inside it, belongs to a connection of this process.
    bool isOwn = false;
    bool isNotification = false;

    bool operator==(const WindowOwner&) const = default;
};

/// A child of the root window with what composing it needs. Positions are those of the border's outer corner in root
/// pixels.
struct CapturedWindow {
    xcb_window_t id = XCB_NONE;
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    int borderWidth = 0;
    std::uint8_t depth = 0;
    xcb_visualid_t visual = 0;
    bool isInputOnly = false;
    bool isMapped = false;
    /// The server keeps no pixels of it for us.
    bool isUnredirected = false;
    /// Nothing is known of the owner yet: the window is in no picture until it is.
    bool needsClassification = true;
    WindowOwner owner;
    /// _NET_WM_WINDOW_OPACITY.
    std::uint32_t opacity = 0xffffffff;

    xcb_pixmap_t pixmap = XCB_NONE;
    xcb_render_picture_t picture = XCB_NONE;
    xcb_damage_damage_t damage = XCB_NONE;
    /// The server reported damage that was not fetched yet; it stays silent until then.
    bool isDamaged = false;

    bool isShaped = false;
    /// Relative to the border's outer corner; of a shaped window only.
    PixelRegion shape;

    /// The pixels that the window takes of the root, by its shape.
    [[nodiscard]] PixelRegion extents() const
    {
        if (!isShaped)
            return {x, y, width + 2 * borderWidth, height + 2 * borderWidth};
        PixelRegion region(shape);
        region.translate(x, y);
        return region;
    }
};

} // namespace nimbrale::x11
