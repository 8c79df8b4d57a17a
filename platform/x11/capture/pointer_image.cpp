#include "platform/x11/capture/pointer_image.h"

#include "platform/x11/server/handles.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <xcb/xfixes.h>

namespace nimbrale::x11 {

namespace {

/// What is larger than this, no desktop uses; reading one takes its size in memory, in two processes.
constexpr int largestSide = 4096;

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
            pixels[static_cast<std::size_t>(y * arrowSize + x)] = isEdge ? 0xffffffff : 0xff000000;
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

void PointerImage::read()
{
    xcb_generic_error_t* rawError = nullptr;
    const Reply<xcb_xfixes_get_cursor_image_reply_t> image(xcb_xfixes_get_cursor_image_reply(
        connection_.get(), xcb_xfixes_get_cursor_image(connection_.get()), &rawError));
    const Reply<xcb_generic_error_t> error(rawError);
    if (image && image->width <= largestSide && image->height <= largestSide)
        replace(image->width, image->height, image->xhot, image->yhot,
                xcb_xfixes_get_cursor_image_cursor_image(image.get()));
    else if (image || !picture_)
        replace(arrowSize, arrowSize, 0, 0, plainArrow().data());
}

void PointerImage::replace(int width, int height, int hotX, int hotY, const std::uint32_t* premultipliedPixels)
{
    picture_.reset();
    width_ = width;
    height_ = height;
    hotX_ = hotX;
    hotY_ = hotY;
    if (width == 0 || height == 0)
        return;
    xcb_connection_t* const raw = connection_.get();
    const OwnedPixmap pixmap(connection_, connection_.newId());
    xcb_create_pixmap(raw, 32, pixmap.get(), connection_.root(), static_cast<std::uint16_t>(width),
                      static_cast<std::uint16_t>(height));
    upload(pixmap.get(), premultipliedPixels);
    // The picture keeps the pixmap alive.
    picture_ = OwnedPicture(connection_, connection_.newId());
    xcb_render_create_picture(raw, picture_.get(), pixmap.get(), connection_.argbFormat(), 0, nullptr);
}

void PointerImage::upload(xcb_pixmap_t pixmap, const std::uint32_t* pixels)
{
    xcb_connection_t* const raw = connection_.get();
    const OwnedGraphicsContext context(connection_, connection_.newId());
    xcb_create_gc(raw, context.get(), pixmap, 0, nullptr);
    // A request that is longer than the server takes would end the connection.
    constexpr int bandBytes = 128 * 1024;
    const int rowsOfBand = std::max(1, bandBytes / (4 * width_));
    for (int y = 0; y < height_; y += rowsOfBand) {
        const int rows = std::min(rowsOfBand, height_ - y);
        xcb_put_image(raw, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, context.get(), static_cast<std::uint16_t>(width_),
                      static_cast<std::uint16_t>(rows), 0, static_cast<std::int16_t>(y), 0, 32,
                      static_cast<std::uint32_t>(4 * width_ * rows),
                      reinterpret_cast<const std::uint8_t*>(pixels + std::ptrdiff_t{y} * width_));
    }
}

} // namespace nimbrale::x11
