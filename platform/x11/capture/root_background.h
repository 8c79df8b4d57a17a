#pragma once

#include "platform/x11/server/connection.h"

#include <xcb/render.h>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// What the root window shows where no other window is. Desktops publish their wallpaper's pixmap; without one a
/// lowest, see-through-to-the-root window of our own stands for the background, whose pixels can be read even where
/// windows cover the root. Under a compositing manager there is no such window: one of them (KWin) draws every
/// override-redirect window above all managed ones, and then the background is black. Thread of its connection only.
class RootBackground {
public:
    RootBackground(Connection& connection, bool isComposited);
    ~RootBackground();
    RootBackground(const RootBackground&) = delete;
    RootBackground& operator=(const RootBackground&) = delete;

    /// Takes in wallpaper and size changes of the root. Returns whether the background looks different now.
    [[nodiscard]] bool handle(const xcb_generic_event_t& event);

    /// A compositing manager came or went.
    void setComposited(bool isComposited);

    /// The wallpaper, repeated over the root; none while the stand-in window is there.
    [[nodiscard]] xcb_render_picture_t picture() const { return picture_; }
    /// The stand-in; none while there is a wallpaper.
    [[nodiscard]] xcb_window_t standIn() const { return standIn_; }

private:
    void read();
    void makeStandIn();
    void lowerStandIn();
    void dropStandIn();

    Connection& connection_;
    xcb_atom_t wallpaperAtoms_[2];
    xcb_render_picture_t picture_ = XCB_NONE;
    xcb_window_t standIn_ = XCB_NONE;
    bool isComposited_;
    int rootWidth_;
    int rootHeight_;
};

} // namespace nimbrale::x11
