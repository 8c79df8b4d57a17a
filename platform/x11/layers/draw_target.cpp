#include "platform/x11/layers/draw_target.h"

namespace nimbrale::x11 {

DrawTarget::DrawTarget(Connection& connection, xcb_drawable_t drawable, std::uint8_t depth,
                       xcb_render_pictformat_t format)
    : connection_(connection), drawable_(drawable), depth_(depth), format_(format), picture_(connection.newId()),
      context_(connection.newId())
{
    xcb_render_create_picture(connection_.get(), picture_, drawable_, format_, 0, nullptr);
    const std::uint32_t noExposures = 0;
    xcb_create_gc(connection_.get(), context_, drawable_, XCB_GC_GRAPHICS_EXPOSURES, &noExposures);
}

std::unique_ptr<DrawTarget> DrawTarget::forWindow(Connection& connection, xcb_window_t window, std::uint8_t depth,
                                                  xcb_render_pictformat_t format)
{
    return std::unique_ptr<DrawTarget>(new DrawTarget(connection, window, depth, format));
}

std::unique_ptr<DrawTarget> DrawTarget::pixmap(Connection& connection, std::uint8_t depth,
                                               xcb_render_pictformat_t format, int width, int height)
{
    const xcb_pixmap_t pixmap = connection.newId();
    xcb_create_pixmap(connection.get(), depth, pixmap, connection.root(), std::uint16_t(width), std::uint16_t(height));
    auto target = std::unique_ptr<DrawTarget>(new DrawTarget(connection, pixmap, depth, format));
    target->ownPixmap_ = pixmap;
    target->width_ = width;
    target->height_ = height;
    return target;
}

DrawTarget::~DrawTarget()
{
    xcb_free_gc(connection_.get(), context_);
    xcb_render_free_picture(connection_.get(), picture_);
    if (ownPixmap_ != XCB_NONE)
        xcb_free_pixmap(connection_.get(), ownPixmap_);
}

} // namespace nimbrale::x11
