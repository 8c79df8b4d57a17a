#pragma once

#include "platform/panel.h"
#include "platform/pixel_rect.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"

#include <string>
#include <xcb/render.h>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// The window of a panel with the properties that its style asks of window managers, compositing managers and the lists
/// of windows in other programs. Created unmapped; its StructureNotify events are asked for. Main thread only.
class PanelWindow {
public:
    /// `connection` must outlive it. `pixels` in pixels of the root.
    PanelWindow(Connection& connection, PanelStyle style, const PixelRect& pixels);
    PanelWindow(const PanelWindow&) = delete;
    PanelWindow& operator=(const PanelWindow&) = delete;

    [[nodiscard]] xcb_window_t id() const { return window_.get(); }
    [[nodiscard]] std::uint8_t depth() const { return depth_; }
    [[nodiscard]] xcb_render_pictformat_t format() const { return format_; }
    /// Whether a compositing manager could see through it.
    [[nodiscard]] bool hasAlpha() const { return static_cast<bool>(colormap_); }

    /// UTF-8.
    void setTitle(const std::string& title);
    /// Moves and resizes in one request. A picture that the window keeps in a resize keeps its place on the screen.
    void configure(const PixelRect& pixels);
    void map();
    void unmap();
    /// On top of, or below, all other windows, as far as the window manager has no say in it.
    void restack(xcb_stack_mode_t mode);

private:
    void setProperties();
    void setManagedProperties();
    void setPlaceHints(const PixelRect& pixels);
    void setAtoms(const char* property, const char* value);

    Connection& connection_;
    PanelStyle style_;
    OwnedColormap colormap_;
    OwnedWindow window_; // Goes before the colors that it is drawn in.
    std::uint8_t depth_;
    xcb_visualid_t visual_;
    xcb_render_pictformat_t format_;
};

} // namespace nimbrale::x11
