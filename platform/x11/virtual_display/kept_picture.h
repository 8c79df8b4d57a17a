#pragma once

#include "platform/pixel_rect.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"

#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// What a window or a part of the screen shows, kept over a change of the screen. None of its calls waits for the
/// server. Main thread only.
class KeptPicture {
public:
    /// `connection` must outlive it.
    explicit KeptPicture(Connection& connection);
    /// The window's background is black again.
    ~KeptPicture();
    KeptPicture(const KeptPicture&) = delete;
    KeptPicture& operator=(const KeptPicture&) = delete;

    /// Keeps what `window`, of the root's depth, shows, and makes it the window's background; a picture of that size,
    /// black where the window shows nothing. XCB_WINDOW_NONE keeps black. To be called once.
    void take(xcb_window_t window, int width, int height);
    /// Keeps what the screen shows there, whatever window that is of. To be called once, instead of `take`.
    void takeFromScreen(const PixelRect& place);
    /// Draws it on the screen itself with its corner there, over whatever windows.
    void showOnScreen(int x, int y);

private:
    void makePixmap(int width, int height);

    Connection& connection_;
    xcb_window_t window_ = XCB_WINDOW_NONE;
    std::uint16_t width_ = 0;
    std::uint16_t height_ = 0;
    OwnedPixmap pixmap_;
    OwnedGraphicsContext context_;
};

} // namespace nimbrale::x11
