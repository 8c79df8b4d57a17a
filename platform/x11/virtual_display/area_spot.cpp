#include "platform/x11/virtual_display/area_spot.h"

#include "platform/x11/server/handles.h"
#include "platform/x11/server/window_attributes.h"

#include <optional>

namespace nimbrale::x11 {

namespace {

std::optional<PixelRect> placeIfShown(Connection& connection, xcb_window_t window)
{
    xcb_connection_t* const raw = connection.get();
    const Reply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(raw, xcb_get_window_attributes(raw, window), nullptr));
    const Reply<xcb_get_geometry_reply_t> place(xcb_get_geometry_reply(raw, xcb_get_geometry(raw, window), nullptr));
    if (!isViewable(attributes) || !place)
        return std::nullopt;
    return PixelRect{place->x, place->y, place->width, place->height};
}

} // namespace

AreaProbe::Spot spotInFront(Connection& connection, const AreaWindows& windows, const PixelRect& area)
{
    AreaProbe::Spot spot{windows.parent()};
    for (const auto& [window, role] : windows.entries()) {
        if (role == AreaRole::shade)
            continue;
        const auto shown = placeIfShown(connection, window);
        const bool holdsCorner = shown && shown->x <= area.right() - AreaProbe::pixelCount &&
                                 shown->y < area.bottom() && shown->right() >= area.right() &&
                                 shown->bottom() >= area.bottom();
        if (holdsCorner)
            spot = {window, shown->x, shown->y};
    }
    return spot;
}

} // namespace nimbrale::x11
