#include "platform/x11/capture/pointer_image.h"

#include "platform/x11/server/handles.h"

#include <array>
#include <xcb/xfixes.h>

namespace nimbrale::x11 {

namespace {

constexpr int arrowSize = 16;
using ArrowPixels = std::array<std::uint32_t, std::size_t{arrowSize} * arrowSize>;

/// A plain black arrow with a white edge, its tip at the top-left.
ArrowPixels plainArrow()
{
    ArrowPixels pixels{};
    for (int y = 0; y < arrowSize; ++y) {
        const int reach = y < 11 ? y : 2 * (arrowSize - 1) - 2 * y;
        for (int x = 0; x <= reach && x < arrowSize; ++x) {
            const bool isEdge = x == 0 || x == reach || y == arrowSize - 1;
            pixels[std::size_t(y) * arrowSize + std::size_t(x)] = isEdge ? 0xffffffff : 0xff000000;
        }
    }
    return pixels;
}

} // namespace

PointerImage::PointerImage(Connection& connection) : connection_(connection)
{
    xcb_xfixes_select_cursor_input(connection_.get(), connection_.root(), XCB_XFIXES_CURSOR_NOTIFY_MASK_DISPLAY_CURSOR);
    read();
}

PointerImage::~PointerImage()
{
    if (picture_ != XCB_NONE)
        xcb_render_free_picture(connection_.get(), picture_);
}

void PointerImage::read()
{
    xcb_generic_error_t* rawError = nullptr;
    const Reply<xcb_xfixes_get_cursor_image_reply_t> image(xcb_xfixes_get_cursor_image_reply(
        connection_.get(), xcb_xfixes_get_cursor_image(connection_.get()), &rawError));
    const Reply<xcb_generic_error_t> error(rawError);
    if (!image) {
        if (picture_ == XCB_NONE)
            replace(arrowSize, arrowSize, 0, 0, plainArrow().data());
        return;
    }
    replace(image->width, image->height, image->xhot, image->yhot,
            xcb_xfixes_get_cursor_image_cursor_image(image.get()));
}

void PointerImage::replace(int width, int height, int hotX, int hotY, const std::uint32_t* premultipliedPixels)
{
    xcb_connection_t* const raw = connection_.get();
    if (picture_ != XCB_NONE)
        xcb_render_free_picture(raw, picture_);
    picture_ = XCB_NONE;
    width_ = width;
    height_ = height;
    hotX_ = hotX;
    hotY_ = hotY;
    if (width == 0 || height == 0)
        return;
    const xcb_pixmap_t pixmap = connection_.newId();
    xcb_create_pixmap(raw, 32, pixmap, connection_.root(), std::uint16_t(width), std::uint16_t(height));
    const xcb_gcontext_t context = connection_.newId();
    xcb_create_gc(raw, context, pixmap, 0, nullptr);
    xcb_put_image(raw, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, context, std::uint16_t(width), std::uint16_t(height), 0, 0, 0,
                  32, std::uint32_t(width * height * 4), reinterpret_cast<const std::uint8_t*>(premultipliedPixels));
    xcb_free_gc(raw, context);
    picture_ = connection_.newId();
    xcb_render_create_picture(raw, picture_, pixmap, connection_.argbFormat(), 0, nullptr);
    // The picture keeps the pixmap alive.
    xcb_free_pixmap(raw, pixmap);
}

} // namespace nimbrale::x11
