#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/server/pixel_region.h"

#include <QImage>

#include <vector>
#include <xcb/shape.h>

namespace nimbrale::x11 {

/// Sets one of a window's shapes to a region in its own pixels.
void setWindowShape(Connection& connection, xcb_window_t window, xcb_shape_sk_t kind, const PixelRegion& region);

/// The part of a see-through window that stands in for translucency where no compositing manager runs: what is at least
/// half opaque is there, the rest is cut out of the window. Main thread only.
class WindowShape {
public:
    /// `connection` must outlive it.
    WindowShape(Connection& connection, xcb_window_t window) : connection_(connection), window_(window) {}

    [[nodiscard]] const PixelRegion& region() const { return region_; }
    /// Cuts the window to `region`, in its own pixels. One that it has already is not set again: whoever listens to the
    /// window's shape would be told each time.
    void set(const PixelRegion& region);
    /// Gives the window its rectangular shape back.
    void remove();

    /// Call both around a request that moves the window's origin by (dx, dy) root pixels: the region keeps its place on
    /// the screen, and no part of it leaves the screen in between.
    void beginMove(int dx, int dy);
    void endMove(int dx, int dy);

private:
    Connection& connection_;
    xcb_window_t window_;
    PixelRegion region_;
    /// Whether the window is cut to the region.
    bool isSet_ = false;
};

/// Finds the pixels that are at least half opaque, makes them wholly so in their own color, and adds them, moved by
/// (x, y), to `solid`. The other pixels keep what they have.
void makeSolid(QImage& premultiplied, int x, int y, PixelRegion& solid);

/// The pixels of a rounded rectangle that are at least half inside of it.
[[nodiscard]] PixelRegion roundedRegion(const PixelRect& rect, double radius);

} // namespace nimbrale::x11
