#include "platform/x11/capture/window_describer.h"

#include "platform/x11/server/handles.h"
#include "platform/x11/server/window_attributes.h"

#include <xcb/shape.h>

namespace nimbrale::x11 {

namespace {

struct ShapeCookies {
    xcb_shape_query_extents_cookie_t extents;
    xcb_shape_get_rectangles_cookie_t rectangles;
};

PixelRegion regionOf(const xcb_shape_get_rectangles_reply_t& reply, int border)
{
    const xcb_rectangle_t* const list = xcb_shape_get_rectangles_rectangles(&reply);
    std::vector<PixelRect> rects;
    rects.reserve(static_cast<std::size_t>(xcb_shape_get_rectangles_rectangles_length(&reply)));
    for (int index = 0; index < xcb_shape_get_rectangles_rectangles_length(&reply); ++index)
        rects.push_back({list[index].x + border, list[index].y + border, list[index].width, list[index].height});
    return PixelRegion(rects);
}

} // namespace

std::vector<bool> WindowDescriber::areMapped(const std::vector<xcb_window_t>& windows) const
{
    std::vector<bool> result;
    result.reserve(windows.size());
    for (const WindowAttributes& attributes : attributesOf(connection_, windows))
        result.push_back(attributes && attributes->map_state != XCB_MAP_STATE_UNMAPPED);
    return result;
}

std::vector<CapturedWindow*> WindowDescriber::describe(const std::vector<CapturedWindow*>& windows) const
{
    struct Cookies {
        xcb_get_window_attributes_cookie_t attributes;
        xcb_get_geometry_cookie_t geometry;
    };
    xcb_connection_t* const raw = connection_.get();
    std::vector<Cookies> cookies;
    cookies.reserve(windows.size());
    for (const CapturedWindow* const window : windows) {
        mayFail(raw, xcb_shape_select_input_checked(raw, window->id, 1));
        const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
        mayFail(raw, xcb_change_window_attributes_checked(raw, window->id, XCB_CW_EVENT_MASK, &events));
        cookies.push_back({xcb_get_window_attributes(raw, window->id), xcb_get_geometry(raw, window->id)});
    }
    std::vector<CapturedWindow*> found;
    for (std::size_t index = 0; index < windows.size(); ++index) {
        const Reply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(raw, cookies[index].attributes, nullptr));
        const Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(raw, cookies[index].geometry, nullptr));
        if (!attributes || !geometry)
            continue; // Its DestroyNotify is on the way.
        CapturedWindow& window = *windows[index];
        // Answers overtake news. Where the window's place was told, it changes with the news alone: each tells of
        // memory that the server has filled there and then.
        if (!window.isSizeKnown()) {
            window.x = geometry->x;
            window.y = geometry->y;
            window.width = geometry->width;
            window.height = geometry->height;
            window.borderWidth = geometry->border_width;
        }
        window.depth = geometry->depth;
        window.format = connection_.formatOf(attributes->visual);
        window.hasAlpha = connection_.hasAlpha(window.format);
        window.isInputOnly = attributes->_class == XCB_WINDOW_CLASS_INPUT_ONLY;
        window.needsDescription = false;
        found.push_back(&window);
    }
    readShapes(found);
    return found;
}

void WindowDescriber::readShapes(const std::vector<CapturedWindow*>& windows) const
{
    xcb_connection_t* const raw = connection_.get();
    std::vector<ShapeCookies> cookies;
    cookies.reserve(windows.size());
    for (const CapturedWindow* const window : windows)
        cookies.push_back({xcb_shape_query_extents(raw, window->id),
                           xcb_shape_get_rectangles(raw, window->id, XCB_SHAPE_SK_BOUNDING)});
    for (std::size_t index = 0; index < windows.size(); ++index) {
        const Reply<xcb_shape_query_extents_reply_t> extents(
            xcb_shape_query_extents_reply(raw, cookies[index].extents, nullptr));
        const Reply<xcb_shape_get_rectangles_reply_t> rectangles(
            xcb_shape_get_rectangles_reply(raw, cookies[index].rectangles, nullptr));
        CapturedWindow& window = *windows[index];
        window.needsShape = false;
        window.isShaped = extents && rectangles && extents->bounding_shaped;
        window.shape.clear();
        if (!window.isShaped)
            continue;
        window.shape = regionOf(*rectangles, window.borderWidth);
        window.shape &= PixelRegion(0, 0, window.bounds().width, window.bounds().height);
    }
}

} // namespace nimbrale::x11
