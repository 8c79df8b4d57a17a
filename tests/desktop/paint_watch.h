#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/server/owned_id.h"

#include <QRect>

#include <memory>
#include <utility>
#include <xcb/damage.h>

namespace nimbrale::test {

/// Tells whether anybody has painted a place of the screen or of a window, as the server itself counts it. A
/// compositing manager paints when it likes: KWin paints a whole display more than a second after another one came.
class PaintWatch {
public:
    /// `place` is in the window's pixels, the root's without one. `connection` is for this alone.
    PaintWatch(std::unique_ptr<x11::Connection> connection, const QRect& place, xcb_window_t window = XCB_NONE)
        : connection_(std::move(connection)), place_(place), damage_(*connection_, connection_->newId())
    {
        xcb_damage_create(connection_->get(), damage_.get(), window == XCB_NONE ? connection_->root() : window,
                          XCB_DAMAGE_REPORT_LEVEL_RAW_RECTANGLES);
        // The server tells one who begins to listen of the whole screen.
        (void)takePainted();
    }

    /// Whether the place was painted since this was asked last.
    [[nodiscard]] bool takePainted()
    {
        connection_->synchronize();
        bool isPainted = false;
        while (const x11::Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection_->get())}) {
            if (x11::eventType(*event) != connection_->extensions().damage.firstEvent + XCB_DAMAGE_NOTIFY)
                continue;
            const xcb_rectangle_t& area = x11::eventAs<xcb_damage_notify_event_t>(*event).area;
            isPainted = isPainted || place_.intersects(QRect(area.x, area.y, area.width, area.height));
        }
        return isPainted;
    }

private:
    std::unique_ptr<x11::Connection> connection_;
    QRect place_;
    x11::OwnedWindowDamage damage_;
};

} // namespace nimbrale::test
