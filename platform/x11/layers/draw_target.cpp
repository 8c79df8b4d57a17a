#include "platform/x11/layers/draw_target.h"

namespace nimbrale::x11 {

DrawTarget::DrawTarget(Connection& connection, xcb_drawable_t drawable, std::uint8_t depth,
                       xcb_render_pictformat_t format)
    : drawable_(drawable), depth_(depth), format_(format), context_(connection, connection.newId())
{
    const std::uint32_t noExposures = 0;
    xcb_create_gc(connection.get(), context_.get(), drawable_, XCB_GC_GRAPHICS_EXPOSURES, &noExposures);
}

std::unique_ptr<DrawTarget> DrawTarget::forWindow(Connection& connection, xcb_window_t window, std::uint8_t depth,
                                                  xcb_render_pictformat_t format)
{
    auto target = std::unique_ptr<DrawTarget>(new DrawTarget(connection, window, depth, format));
    target->windowPicture_ = OwnedWindowPicture(connection, connection.newId());
    xcb_render_create_picture(connection.get(), target->windowPicture_.get(), window, format, 0, nullptr);
    return target;
}

std::unique_ptr<DrawTarget> DrawTarget::pixmap(Connection& connection, std::uint8_t depth,
                                               xcb_render_pictformat_t format, int width, int height)
{
    OwnedPixmap pixmap(connection, connection.newId());
    xcb_create_pixmap(connection.get(), depth, pixmap.get(), connection.root(), static_cast<std::uint16_t>(width),
                      static_cast<std::uint16_t>(height));
    auto target = std::unique_ptr<DrawTarget>(new DrawTarget(connection, pixmap.get(), depth, format));
    target->ownPixmap_ = std::move(pixmap);
    target->pixmapPicture_ = OwnedPicture(connection, connection.newId());
    xcb_render_create_picture(connection.get(), target->pixmapPicture_.get(), target->drawable_, format, 0, nullptr);
    target->width_ = width;
    target->height_ = height;
    return target;
}

} // namespace nimbrale::x11
