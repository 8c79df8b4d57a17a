#pragma once

#include "platform/pixel_rect.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/virtual_display/lasting_connection.h"
#include "platform/x11/virtual_display/virtual_area.h"

#include <QImage>

#include <memory>
#include <string>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// What the virtual display shows while no other window of the application covers it: that sharing has stopped. Windows
/// that nobody lists or manages, painted by the server alone, which stay there when the process ends before its time,
/// so that nothing else shows on what it leaves. Main thread only.
class BackdropCard {
public:
    /// Shown from the start, black, wherever `area` is, behind whatever is registered with it later. `displayName`
    /// empty means the environment's display.
    BackdropCard(Connection& connection, VirtualArea& area, const std::string& displayName);
    ~BackdropCard();
    BackdropCard(const BackdropCard&) = delete;
    BackdropCard& operator=(const BackdropCard&) = delete;

    /// By which the windows can be removed with `removeLasting` when the process is gone.
    [[nodiscard]] xcb_window_t window() const { return window_; }
    /// The area has this place now: puts the text in its middle.
    void layOut(const PixelRect& pixels);
    /// Puts the card in front of everything that is on the virtual display.
    void raise();

    /// The card for a display of that size; the rest of the display is black. Null where the display is too small for
    /// readable text.
    [[nodiscard]] static QImage picture(int displayWidth, int displayHeight);

private:
    [[nodiscard]] xcb_pixmap_t upload(const QImage& image) const;

    Connection& connection_;
    VirtualArea& area_;
    /// Null where the server takes no second connection: the windows then go with the process.
    std::unique_ptr<LastingConnection> lasting_;
    PixelRect laidOut_;
    xcb_window_t shade_;
    xcb_window_t window_;
    xcb_window_t text_;
};

} // namespace nimbrale::x11
