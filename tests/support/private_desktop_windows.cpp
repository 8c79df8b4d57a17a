#include "tests/support/private_desktop.h"

#include "tests/support/x_reply.h"

#include <xcb/xcb.h>

namespace nimbrale::test {

std::optional<QRect> PrivateDesktop::windowTitled(const std::string& text) const
{
    return placeOf(findWindow(screen_->root, text));
}

std::optional<QRect> PrivateDesktop::placeOf(std::uint32_t window) const
{
    if (window == XCB_WINDOW_NONE)
        return std::nullopt;
    const Reply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(connection_, xcb_get_geometry(connection_, window), nullptr));
    const Reply<xcb_translate_coordinates_reply_t> origin(xcb_translate_coordinates_reply(
        connection_, xcb_translate_coordinates(connection_, window, screen_->root, 0, 0), nullptr));
    if (!geometry || !origin)
        return std::nullopt;
    return QRect(origin->dst_x, origin->dst_y, geometry->width, geometry->height);
}

std::uint32_t PrivateDesktop::findWindow(std::uint32_t parent, const std::string& text) const
{
    const Reply<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(connection_, xcb_query_tree(connection_, parent), nullptr));
    if (!tree)
        return XCB_WINDOW_NONE;
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    for (int index = 0; index < xcb_query_tree_children_length(tree.get()); ++index) {
        const xcb_window_t window = children[index];
        const bool isTitled = textProperty(window, XCB_ATOM_WM_NAME).find(text) != std::string::npos ||
                              textProperty(window, atom("_NET_WM_NAME")).find(text) != std::string::npos;
        const Reply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(connection_, xcb_get_window_attributes(connection_, window), nullptr));
        // The frame of a manager bears no title, or its client's on a window of another size; the client is inside.
        const xcb_window_t inside = findWindow(window, text);
        if (inside != XCB_WINDOW_NONE)
            return inside;
        if (isTitled && attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE)
            return window;
    }
    return XCB_WINDOW_NONE;
}

std::string PrivateDesktop::activeWindowTitle() const
{
    const xcb_window_t window = activeWindow();
    return window == XCB_WINDOW_NONE ? std::string() : textProperty(window, atom("_NET_WM_NAME"));
}

std::optional<QRect> PrivateDesktop::activeWindowPlace() const
{
    return placeOf(activeWindow());
}

std::optional<std::uint32_t> PrivateDesktop::focusedWindow() const
{
    const Reply<xcb_get_input_focus_reply_t> focus(
        xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
    const xcb_window_t active = activeWindow();
    const bool isFocused = focus && active != XCB_WINDOW_NONE && focus->focus == active;
    return isFocused ? std::optional(active) : std::nullopt;
}

bool PrivateDesktop::isViewable(std::uint32_t window) const
{
    const Reply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(connection_, xcb_get_window_attributes(connection_, window), nullptr));
    return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
}

std::uint32_t PrivateDesktop::activeWindow() const
{
    const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection_, xcb_get_property(connection_, 0, screen_->root, atom("_NET_ACTIVE_WINDOW"), XCB_ATOM_WINDOW, 0, 1),
        nullptr));
    if (!reply || xcb_get_property_value_length(reply.get()) < 4)
        return XCB_WINDOW_NONE;
    return *static_cast<const xcb_window_t*>(xcb_get_property_value(reply.get()));
}

std::string PrivateDesktop::textProperty(std::uint32_t window, std::uint32_t property) const
{
    const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection_, xcb_get_property(connection_, 0, window, property, XCB_ATOM_ANY, 0, 256), nullptr));
    if (!reply || reply->format != 8)
        return {};
    return {static_cast<const char*>(xcb_get_property_value(reply.get())),
            static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))};
}

} // namespace nimbrale::test
