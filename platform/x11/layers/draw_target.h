#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"

#include <memory>
#include <xcb/render.h>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Something to draw into by the core protocol and by RENDER, and which pixel of the panel's window its own pixel
/// (0, 0) is. Owns the graphics context and the picture, and the pixmap where it is one. Main thread only.
class DrawTarget {
public:
    /// `connection` must outlive it. `window` stays the caller's.
    [[nodiscard]] static std::unique_ptr<DrawTarget> forWindow(Connection& connection, xcb_window_t window,
                                                               std::uint8_t depth, xcb_render_pictformat_t format);
    [[nodiscard]] static std::unique_ptr<DrawTarget> pixmap(Connection& connection, std::uint8_t depth,
                                                            xcb_render_pictformat_t format, int width, int height);
    DrawTarget(const DrawTarget&) = delete;
    DrawTarget& operator=(const DrawTarget&) = delete;

    [[nodiscard]] xcb_drawable_t drawable() const { return drawable_; }
    [[nodiscard]] xcb_render_picture_t picture() const
    {
        return windowPicture_ ? windowPicture_.get() : pixmapPicture_.get();
    }
    [[nodiscard]] xcb_gcontext_t context() const { return context_.get(); }
    [[nodiscard]] std::uint8_t depth() const { return depth_; }
    [[nodiscard]] xcb_render_pictformat_t format() const { return format_; }
    /// Of a pixmap.
    [[nodiscard]] int width() const { return width_; }
    [[nodiscard]] int height() const { return height_; }

    int originX = 0;
    int originY = 0;

private:
    DrawTarget(Connection& connection, xcb_drawable_t drawable, std::uint8_t depth, xcb_render_pictformat_t format);

    xcb_drawable_t drawable_;
    std::uint8_t depth_;
    xcb_render_pictformat_t format_;
    OwnedPixmap ownPixmap_;
    /// One of both: a window's goes with the window, whoever destroys that.
    OwnedWindowPicture windowPicture_;
    OwnedPicture pixmapPicture_;
    OwnedGraphicsContext context_;
    int width_ = 0;
    int height_ = 0;
};

} // namespace nimbrale::x11
