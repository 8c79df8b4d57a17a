#include "platform/x11/virtual_display/kept_picture.h"

#include "platform/x11/server/handles.h"

#include <array>

namespace nimbrale::x11 {

KeptPicture::KeptPicture(Connection& connection)
    : connection_(connection), pixmap_(connection, connection.newId()), context_(connection, connection.newId())
{}

KeptPicture::~KeptPicture()
{
    if (window_ == XCB_WINDOW_NONE)
        return;
    const std::uint32_t black = connection_.screen().black_pixel;
    mayFail(connection_.get(),
            xcb_change_window_attributes_checked(connection_.get(), window_, XCB_CW_BACK_PIXEL, &black));
}

void KeptPicture::makePixmap(int width, int height)
{
    xcb_connection_t* const raw = connection_.get();
    const xcb_screen_t& screen = connection_.screen();
    width_ = static_cast<std::uint16_t>(width);
    height_ = static_cast<std::uint16_t>(height);
    // On the root it reads and draws over the windows there, too.
    const std::array<std::uint32_t, 3> values = {screen.black_pixel, XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS, 0};
    xcb_create_pixmap(raw, screen.root_depth, pixmap_.get(), connection_.root(), width_, height_);
    xcb_create_gc(raw, context_.get(), connection_.root(),
                  XCB_GC_FOREGROUND | XCB_GC_SUBWINDOW_MODE | XCB_GC_GRAPHICS_EXPOSURES, values.data());
    const xcb_rectangle_t whole = {0, 0, width_, height_};
    xcb_poly_fill_rectangle(raw, pixmap_.get(), context_.get(), 1, &whole);
}

void KeptPicture::take(xcb_window_t window, int width, int height)
{
    makePixmap(width, height);
    window_ = window;
    if (window_ == XCB_WINDOW_NONE)
        return;
    // The window may be gone, or not be shown yet.
    xcb_connection_t* const raw = connection_.get();
    mayFail(raw, xcb_copy_area_checked(raw, window_, pixmap_.get(), context_.get(), 0, 0, 0, 0, width_, height_));
    const std::uint32_t background = pixmap_.get();
    mayFail(raw, xcb_change_window_attributes_checked(raw, window_, XCB_CW_BACK_PIXMAP, &background));
}

void KeptPicture::takeFromScreen(const PixelRect& place)
{
    makePixmap(place.width, place.height);
    xcb_copy_area(connection_.get(), connection_.root(), pixmap_.get(), context_.get(),
                  static_cast<std::int16_t>(place.x), static_cast<std::int16_t>(place.y), 0, 0, width_, height_);
}

void KeptPicture::showOnScreen(int x, int y)
{
    xcb_copy_area(connection_.get(), pixmap_.get(), connection_.root(), context_.get(), 0, 0,
                  static_cast<std::int16_t>(x), static_cast<std::int16_t>(y), width_, height_);
}

} // namespace nimbrale::x11
