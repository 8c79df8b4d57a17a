#pragma once

#include "platform/pixel_rect.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"

#include <optional>
#include <xcb/damage.h>
#include <xcb/render.h>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

namespace nimbrale::x11 {

/// What the root window shows where no other window is.
///
/// Without a compositing manager that is the root's own background, whatever a program set there last. The server tells
/// nobody what it is, and where windows cover the root its pixels do not exist. But it paints a window whose background
/// is its parent's as it would paint the root: such a window of the root's size stands in for the root. It is
/// redirected manually, so that it has pixels of its own while the screen shows nothing of it and it covers nothing.
/// Being no child of the root itself, it does not keep a compositing manager from redirecting those.
///
/// A compositing manager draws the background itself, by the wallpaper that the root's properties name; without one the
/// background is taken to be black. Thread of its connection only.
class RootBackground {
public:
    RootBackground(Connection& connection, bool isComposited);
    RootBackground(const RootBackground&) = delete;
    RootBackground& operator=(const RootBackground&) = delete;

    /// Takes in wallpaper and size changes of the root, and its damage. Returns whether the background looks different
    /// now.
    [[nodiscard]] bool handle(const xcb_generic_event_t& event);

    /// A compositing manager came or went.
    void setComposited(bool isComposited);

    /// The root as it is now, in its own pixels.
    [[nodiscard]] PixelRect rootBounds() const { return {0, 0, rootWidth_, rootHeight_}; }
    /// The wallpaper, repeated over the root; none without a compositing manager.
    [[nodiscard]] xcb_render_picture_t wallpaper() const { return wallpaper_.get(); }
    /// Whether somebody tells what it is.
    [[nodiscard]] bool isKnown() const { return standIn_ != XCB_NONE || wallpaper_; }
    /// The stand-in, aligned with the root; none under a compositing manager. Clear a part of it to have the background
    /// of now there.
    [[nodiscard]] xcb_window_t standIn() const { return standIn_; }
    /// The child of the root that the stand-in is in, a single pixel beyond the screen; none without a stand-in.
    [[nodiscard]] xcb_window_t anchor() const { return anchor_.get(); }

    /// Whether something was drawn on the screen since `fetchDamage`, in windows or on the root itself. Always false
    /// without a stand-in.
    [[nodiscard]] bool isDamaged() const { return isDamaged_; }
    /// Asks where, by way of `region`, which is of this connection.
    [[nodiscard]] xcb_xfixes_fetch_region_cookie_t fetchDamage(xcb_xfixes_region_t region);

private:
    void readWallpaper();
    [[nodiscard]] std::optional<xcb_pixmap_t> namedPixmap(xcb_atom_t property) const;
    void makeStandIn();
    void dropStandIn();

    Connection& connection_;
    xcb_atom_t wallpaperAtoms_[2];
    OwnedWindowPicture wallpaper_;
    OwnedWindow anchor_;
    /// Goes with the anchor.
    xcb_window_t standIn_ = XCB_NONE;
    OwnedWindowDamage damage_;
    bool isDamaged_ = false;
    int rootWidth_;
    int rootHeight_;
};

} // namespace nimbrale::x11
