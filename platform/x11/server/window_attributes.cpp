#include "platform/x11/server/window_attributes.h"

namespace nimbrale::x11 {

std::vector<WindowAttributes> attributesOf(Connection& connection, const std::vector<xcb_window_t>& windows)
{
    xcb_connection_t* const raw = connection.get();
    std::vector<xcb_get_window_attributes_cookie_t> cookies;
    cookies.reserve(windows.size());
    for (const xcb_window_t window : windows)
        cookies.push_back(xcb_get_window_attributes(raw, window));
    std::vector<WindowAttributes> attributes;
    attributes.reserve(windows.size());
    for (const auto cookie : cookies)
        attributes.emplace_back(xcb_get_window_attributes_reply(raw, cookie, nullptr));
    return attributes;
}

bool isViewable(const WindowAttributes& attributes)
{
    return attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
}

} // namespace nimbrale::x11
