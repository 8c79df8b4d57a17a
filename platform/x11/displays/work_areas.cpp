#include "platform/x11/displays/work_areas.h"

#include "platform/x11/server/handles.h"

#include <algorithm>
#include <string>

namespace nimbrale::x11 {

namespace {

/// Empty where the property is missing or holds no 32-bit numbers.
std::vector<std::uint32_t> numbersOf(const Reply<xcb_get_property_reply_t>& reply)
{
    if (!reply || reply->format != 32)
        return {};
    const auto* const first = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
    return {first, first + reply->value_len};
}

} // namespace

WorkAreas::WorkAreas(Connection& connection)
    : connection_(connection), workArea_(connection.atom("_NET_WORKAREA")),
      clientList_(connection.atom("_NET_CLIENT_LIST")), desktop_(connection.atom("_NET_CURRENT_DESKTOP")),
      strutPartial_(connection.atom("_NET_WM_STRUT_PARTIAL")), strut_(connection.atom("_NET_WM_STRUT"))
{}

std::vector<PixelRect> WorkAreas::freeAreas(const std::vector<PixelRect>& displays)
{
    return x11::freeAreas(displays, claims());
}

SpaceClaims WorkAreas::claims()
{
    const std::size_t desktop = connection_.property32(connection_.root(), desktop_, XCB_ATOM_CARDINAL).value_or(0);
    perDisplay_ = connection_.atom("_GTK_WORKAREAS_D" + std::to_string(desktop));
    SpaceClaims claims;
    const Reply<xcb_get_geometry_reply_t> root(
        xcb_get_geometry_reply(connection_.get(), xcb_get_geometry(connection_.get(), connection_.root()), nullptr));
    if (root)
        claims.screen = {0, 0, root->width, root->height};
    claims.struts = struts();
    claims.perDisplay = rectanglesFrom(connection_.numbers32(connection_.root(), perDisplay_, XCB_ATOM_CARDINAL));
    claims.common = commonAreaFrom(connection_.numbers32(connection_.root(), workArea_, XCB_ATOM_CARDINAL), desktop);
    return claims;
}

bool WorkAreas::dependOn(xcb_window_t window, xcb_atom_t property) const
{
    if (window != connection_.root())
        return (property == strut_ || property == strutPartial_) &&
               std::any_of(strutWindows_.begin(), strutWindows_.end(),
                           [window](const WindowEvents& strut) { return strut.window() == window; });
    return property == workArea_ || property == perDisplay_ || property == clientList_ || property == desktop_;
}

std::vector<Strut> WorkAreas::struts()
{
    const std::vector<std::uint32_t> clients = connection_.numbers32(connection_.root(), clientList_, XCB_ATOM_WINDOW);
    std::vector<xcb_get_property_cookie_t> partial;
    std::vector<xcb_get_property_cookie_t> whole;
    for (const xcb_window_t client : clients) {
        partial.push_back(xcb_get_property(connection_.get(), 0, client, strutPartial_, XCB_ATOM_CARDINAL, 0, 12));
        whole.push_back(xcb_get_property(connection_.get(), 0, client, strut_, XCB_ATOM_CARDINAL, 0, 4));
    }
    std::vector<Strut> struts;
    std::vector<WindowEvents> windows;
    for (std::size_t index = 0; index < clients.size(); ++index) {
        const Reply<xcb_get_property_reply_t> exact(xcb_get_property_reply(connection_.get(), partial[index], nullptr));
        const Reply<xcb_get_property_reply_t> rough(xcb_get_property_reply(connection_.get(), whole[index], nullptr));
        const std::optional<Strut> strut = strutFrom(numbersOf(exact), numbersOf(rough));
        if (!strut)
            continue;
        struts.push_back(*strut);
        windows.emplace_back(connection_, clients[index], XCB_EVENT_MASK_PROPERTY_CHANGE);
    }
    strutWindows_ = std::move(windows);
    return struts;
}

} // namespace nimbrale::x11
