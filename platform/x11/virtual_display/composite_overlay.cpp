#include "platform/x11/virtual_display/composite_overlay.h"

#include "platform/x11/displays/randr_layout.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/server/window_attributes.h"

#include <algorithm>
#include <array>
#include <xcb/composite.h>
#include <xcb/res.h>
#include <xcb/shape.h>

namespace nimbrale::x11 {

namespace {

xcb_rectangle_t rectangleOf(const PixelRect& area)
{
    return {static_cast<std::int16_t>(area.x), static_cast<std::int16_t>(area.y),
            static_cast<std::uint16_t>(area.width), static_cast<std::uint16_t>(area.height)};
}

QRegion boundingShape(xcb_connection_t* connection, xcb_window_t window)
{
    QRegion shape;
    const Reply<xcb_shape_get_rectangles_reply_t> reply(xcb_shape_get_rectangles_reply(
        connection, xcb_shape_get_rectangles(connection, window, XCB_SHAPE_SK_BOUNDING), nullptr));
    if (!reply)
        return shape;
    const xcb_rectangle_t* const rectangles = xcb_shape_get_rectangles_rectangles(reply.get());
    for (int index = 0; index < xcb_shape_get_rectangles_rectangles_length(reply.get()); ++index)
        shape += QRect(rectangles[index].x, rectangles[index].y, rectangles[index].width, rectangles[index].height);
    return shape;
}

bool isShaped(xcb_connection_t* connection, xcb_window_t window)
{
    const Reply<xcb_shape_query_extents_reply_t> extents(
        xcb_shape_query_extents_reply(connection, xcb_shape_query_extents(connection, window), nullptr));
    return extents && extents->bounding_shaped != 0;
}

} // namespace

CompositeOverlay::CompositeOverlay(Connection& connection) : connection_(connection) {}

CompositeOverlay::~CompositeOverlay()
{
    release();
}

// To ask for the overlay itself would make it.
bool CompositeOverlay::isHeldBy(xcb_window_t window) const
{
    if (!connection_.extensions().resources.isPresent)
        return false;
    xcb_connection_t* const raw = connection_.get();
    const Reply<xcb_res_query_client_resources_reply_t> resources(
        xcb_res_query_client_resources_reply(raw, xcb_res_query_client_resources(raw, window), nullptr));
    if (!resources)
        return false;
    const xcb_atom_t held = connection_.atom("CompositeClientOverlay");
    const xcb_res_type_t* const types = xcb_res_query_client_resources_types(resources.get());
    return std::any_of(types, types + xcb_res_query_client_resources_types_length(resources.get()),
                       [held](const xcb_res_type_t& type) { return type.resource_type == held && type.count > 0; });
}

bool CompositeOverlay::acquire()
{
    if (window_ != XCB_WINDOW_NONE)
        return true;
    if (!connection_.extensions().composite.isPresent)
        return false;
    xcb_connection_t* const raw = connection_.get();
    const Reply<xcb_composite_get_overlay_window_reply_t> reply(xcb_composite_get_overlay_window_reply(
        raw, xcb_composite_get_overlay_window(raw, connection_.root()), nullptr));
    if (!reply)
        return false;
    window_ = reply->overlay_win;
    xcb_shape_select_input(raw, window_, 1);
    mappings_ = WindowEvents(connection_, window_, XCB_EVENT_MASK_STRUCTURE_NOTIFY);
    return true;
}

void CompositeOverlay::release()
{
    if (window_ == XCB_WINDOW_NONE)
        return;
    closeAllBut({});
    xcb_shape_select_input(connection_.get(), window_, 0);
    mappings_ = {};
    xcb_composite_release_overlay_window(connection_.get(), connection_.root());
    window_ = XCB_WINDOW_NONE;
}

bool CompositeOverlay::isOnScreen() const
{
    const Reply<xcb_get_window_attributes_reply_t> attributes(xcb_get_window_attributes_reply(
        connection_.get(), xcb_get_window_attributes(connection_.get(), window_), nullptr));
    return isViewable(attributes);
}

void CompositeOverlay::open(const PixelRect& area)
{
    if (window_ == XCB_WINDOW_NONE || area.isEmpty())
        return;
    stretchOver(area);
    // Giving a shape to an overlay without one would cut off displays that are plugged in later.
    if (!isShaped(connection_.get(), window_))
        return;
    const QRect wanted(area.x, area.y, area.width, area.height);
    if ((QRegion(wanted) - boundingShape(connection_.get(), window_)).isEmpty())
        return;
    const xcb_rectangle_t rectangle = rectangleOf(area);
    xcb_shape_rectangles(connection_.get(), XCB_SHAPE_SO_UNION, XCB_SHAPE_SK_BOUNDING, XCB_CLIP_ORDERING_UNSORTED,
                         window_, 0, 0, 1, &rectangle);
    connection_.flush();
    opened_ += wanted;
}

void CompositeOverlay::stretchOver(const PixelRect& area)
{
    const Reply<xcb_get_geometry_reply_t> now(
        xcb_get_geometry_reply(connection_.get(), xcb_get_geometry(connection_.get(), window_), nullptr));
    if (!now)
        return;
    const std::array<std::uint32_t, 2> size = {
        static_cast<std::uint32_t>(std::max<int>(now->width, area.x + area.width)),
        static_cast<std::uint32_t>(std::max<int>(now->height, area.y + area.height))};
    if (size[0] == now->width && size[1] == now->height)
        return;
    xcb_configure_window(connection_.get(), window_, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size.data());
    connection_.flush();
}

void CompositeOverlay::closeAllBut(const PixelRect& area)
{
    const QRegion kept = opened_ & QRect(area.x, area.y, area.width, area.height);
    for (const QRect& rect : opened_ - kept) {
        const xcb_rectangle_t rectangle = rectangleOf({rect.x(), rect.y(), rect.width(), rect.height()});
        xcb_shape_rectangles(connection_.get(), XCB_SHAPE_SO_SUBTRACT, XCB_SHAPE_SK_BOUNDING,
                             XCB_CLIP_ORDERING_UNSORTED, window_, 0, 0, 1, &rectangle);
    }
    opened_ = kept;
}

} // namespace nimbrale::x11
