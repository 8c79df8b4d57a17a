#pragma once

#include "platform/main_queue.h"
#include "platform/pixel_rect.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/server/window_events.h"
#include "platform/x11/server/window_guard.h"
#include "platform/x11/virtual_display/lasting_connection.h"
#include "platform/x11/virtual_display/virtual_area.h"

#include <QImage>

#include <functional>
#include <memory>
#include <string>
#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// What the virtual display shows while no other window of the application covers it: that sharing has stopped. Windows
/// that nobody lists or manages, painted by the server alone, which stay there when the process ends before its time,
/// so that nothing else shows on what it leaves. When another client takes one of them away or destroys it, they are
/// made anew. Main thread only.
class BackdropCard {
public:
    /// Shown from the start, black, wherever `area` is, behind whatever is registered with it later. `displayName`
    /// empty means the environment's display. The others must outlive it.
    BackdropCard(Connection& connection, EventDispatcher& events, MainQueue& queue, VirtualArea& area,
                 std::string displayName);
    ~BackdropCard();
    BackdropCard(const BackdropCard&) = delete;
    BackdropCard& operator=(const BackdropCard&) = delete;

    /// By which the windows can be removed with `removeLasting` when the process is gone; another one after `onRemade`.
    [[nodiscard]] xcb_window_t window() const { return card_.window; }
    /// The area has this place now: puts the text in its middle.
    void layOut(const PixelRect& pixels);
    /// Puts the card in front of everything that is on the virtual display.
    void raise();
    /// The windows stay when this object goes, to be removed with `removeLasting`. False where they would go with the
    /// process.
    [[nodiscard]] bool leave();

    /// The card for a display of that size; the rest of the display is black. Null where the display is too small for
    /// readable text.
    [[nodiscard]] static QImage picture(int displayWidth, int displayHeight);

    std::function<void()> onRemade;

private:
    struct Part {
        xcb_window_t window = XCB_WINDOW_NONE;
        WindowEvents events;
    };

    void make();
    void remake();
    [[nodiscard]] Part makePart(xcb_window_t parent);
    void guard(std::function<WindowGuard::Wanted()> wanted);
    [[nodiscard]] xcb_pixmap_t upload(const QImage& image) const;

    Connection& connection_;
    EventDispatcher& events_;
    MainQueue& queue_;
    VirtualArea& area_;
    std::string displayName_;
    /// Null where the server takes no second connection: the windows then go with the process.
    std::unique_ptr<LastingConnection> lasting_;
    bool isLeft_ = false;
    PixelRect laidOut_;
    Part shade_;
    Part card_;
    Part text_;
    /// In the card; of one pixel outside of it where there is no room for the text.
    PixelRect textPixels_;
    std::vector<std::unique_ptr<WindowGuard>> guards_;
};

} // namespace nimbrale::x11
