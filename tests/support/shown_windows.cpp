#include "tests/support/shown_windows.h"

#include "tests/support/x_reply.h"

#include <QRect>

#include <algorithm>
#include <span>
#include <xcb/composite.h>

namespace nimbrale::test {

namespace {

/// TranslateCoordinates would be one request, but it passes over windows that let clicks through.
xcb_window_t topmostChildAt(const PrivateDesktop& desktop, xcb_window_t parent, const QPoint& place)
{
    xcb_connection_t* connection = desktop.connection();
    const Reply<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(connection, xcb_query_tree(connection, parent), nullptr));
    if (!tree)
        return XCB_WINDOW_NONE;
    const std::span<const xcb_window_t> children(xcb_query_tree_children(tree.get()), tree->children_len);
    const auto topmost = std::find_if(children.rbegin(), children.rend(), [&](xcb_window_t window) {
        const Reply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(connection, xcb_get_geometry(connection, window), nullptr));
        const Reply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(connection, xcb_get_window_attributes(connection, window), nullptr));
        return geometry && attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE &&
               QRect(geometry->x, geometry->y, geometry->width, geometry->height).contains(place);
    });
    return topmost == children.rend() ? xcb_window_t{XCB_WINDOW_NONE} : *topmost;
}

} // namespace

xcb_window_t windowAt(const PrivateDesktop& desktop, const QPoint& place)
{
    return topmostChildAt(desktop, desktop.screen().root, place);
}

xcb_window_t overlayWindowAt(const PrivateDesktop& desktop, const QPoint& place)
{
    // Without a manager that draws into it, asking for it would bring it up, in front of everything.
    if (!desktop.isComposited())
        return XCB_WINDOW_NONE;
    xcb_connection_t* connection = desktop.connection();
    const xcb_window_t root = desktop.screen().root;
    const Reply<xcb_composite_get_overlay_window_reply_t> overlay(xcb_composite_get_overlay_window_reply(
        connection, xcb_composite_get_overlay_window(connection, root), nullptr));
    if (!overlay)
        return XCB_WINDOW_NONE;
    const xcb_window_t window = topmostChildAt(desktop, overlay->overlay_win, place);
    xcb_composite_release_overlay_window(connection, root);
    return window;
}

} // namespace nimbrale::test
