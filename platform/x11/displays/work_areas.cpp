#include "platform/x11/displays/work_areas.h"

#include "platform/x11/displays/randr_layout.h"
#include "platform/x11/server/handles.h"

#include <algorithm>
#include <limits>
#include <string>

namespace nimbrale::x11 {

namespace {

constexpr std::uint32_t maximumPropertyLength = 4096;

PixelRect intersection(const PixelRect& first, const PixelRect& second)
{
    if (!overlap(first, second))
        return {};
    const int left = std::max(first.x, second.x);
    const int top = std::max(first.y, second.y);
    const int right = std::min(first.x + first.width, second.x + second.width);
    const int bottom = std::min(first.y + first.height, second.y + second.height);
    return {left, top, right - left, bottom - top};
}

long areaOf(const PixelRect& pixels)
{
    return static_cast<long>(pixels.width) * pixels.height;
}

bool rangesMeet(int start, int length, std::uint32_t rangeStart, std::uint32_t rangeEnd)
{
    return static_cast<long>(rangeStart) < start + length && static_cast<long>(rangeEnd) >= start;
}

} // namespace

WorkAreas::WorkAreas(Connection& connection)
    : connection_(connection), workArea_(connection.atom("_NET_WORKAREA")),
      clientList_(connection.atom("_NET_CLIENT_LIST")), desktop_(connection.atom("_NET_CURRENT_DESKTOP")),
      strutPartial_(connection.atom("_NET_WM_STRUT_PARTIAL")), strut_(connection.atom("_NET_WM_STRUT"))
{}

std::vector<PixelRect> WorkAreas::freeAreas(const std::vector<PixelRect>& displays)
{
    perDisplay_ = connection_.atom("_GTK_WORKAREAS_D" + std::to_string(currentDesktop()));
    const std::vector<PixelRect> perDisplay = rectangles(perDisplay_);
    const std::vector<PixelRect> common = rectangles(workArea_);
    const std::vector<Strut> taken = struts();
    const Reply<xcb_get_geometry_reply_t> root(
        xcb_get_geometry_reply(connection_.get(), xcb_get_geometry(connection_.get(), connection_.root()), nullptr));
    const PixelRect screen = root ? PixelRect{0, 0, root->width, root->height} : PixelRect{};

    std::vector<PixelRect> free;
    for (const PixelRect& display : displays) {
        PixelRect area = display;
        for (const Strut& strut : taken)
            area = intersection(area, without(display, strut, screen));
        PixelRect best;
        for (const PixelRect& candidate : perDisplay) {
            const PixelRect part = intersection(display, candidate);
            if (areaOf(part) > areaOf(best))
                best = part;
        }
        if (!isEmpty(best))
            area = intersection(area, best);
        else if (displays.size() == 1 && !common.empty())
            area = intersection(area, common[std::min<std::size_t>(currentDesktop(), common.size() - 1)]);
        free.push_back(isEmpty(area) ? display : area);
    }
    return free;
}

bool WorkAreas::dependOn(xcb_window_t window, xcb_atom_t property) const
{
    if (window != connection_.root())
        return (property == strut_ || property == strutPartial_) &&
               std::any_of(strutWindows_.begin(), strutWindows_.end(),
                           [window](const WindowEvents& strut) { return strut.window() == window; });
    return property == workArea_ || property == perDisplay_ || property == clientList_ || property == desktop_;
}

std::vector<std::uint32_t> WorkAreas::values(xcb_window_t window, xcb_atom_t property, xcb_atom_t type) const
{
    const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection_.get(), xcb_get_property(connection_.get(), 0, window, property, type, 0, maximumPropertyLength),
        nullptr));
    if (!reply || reply->format != 32)
        return {};
    const auto* const first = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
    return {first, first + xcb_get_property_value_length(reply.get()) / 4};
}

std::vector<PixelRect> WorkAreas::rectangles(xcb_atom_t property) const
{
    const std::vector<std::uint32_t> numbers = values(connection_.root(), property, XCB_ATOM_CARDINAL);
    std::vector<PixelRect> result;
    for (std::size_t index = 0; index + 3 < numbers.size(); index += 4) {
        result.push_back({static_cast<int>(numbers[index]), static_cast<int>(numbers[index + 1]),
                          static_cast<int>(numbers[index + 2]), static_cast<int>(numbers[index + 3])});
    }
    return result;
}

std::vector<WorkAreas::Strut> WorkAreas::struts()
{
    constexpr std::uint32_t end = std::numeric_limits<std::int32_t>::max();
    const std::vector<std::uint32_t> clients = values(connection_.root(), clientList_, XCB_ATOM_WINDOW);
    std::vector<xcb_get_property_cookie_t> partial;
    std::vector<xcb_get_property_cookie_t> whole;
    for (const xcb_window_t client : clients) {
        partial.push_back(xcb_get_property(connection_.get(), 0, client, strutPartial_, XCB_ATOM_CARDINAL, 0, 12));
        whole.push_back(xcb_get_property(connection_.get(), 0, client, strut_, XCB_ATOM_CARDINAL, 0, 4));
    }
    std::vector<Strut> result;
    std::vector<WindowEvents> windows;
    for (std::size_t index = 0; index < clients.size(); ++index) {
        const Reply<xcb_get_property_reply_t> exact(xcb_get_property_reply(connection_.get(), partial[index], nullptr));
        const Reply<xcb_get_property_reply_t> rough(xcb_get_property_reply(connection_.get(), whole[index], nullptr));
        if (exact && exact->format == 32 && exact->value_len == 12) {
            const auto* const v = static_cast<const std::uint32_t*>(xcb_get_property_value(exact.get()));
            result.push_back({v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8], v[9], v[10], v[11]});
        } else if (rough && rough->format == 32 && rough->value_len == 4) {
            const auto* const v = static_cast<const std::uint32_t*>(xcb_get_property_value(rough.get()));
            result.push_back({v[0], v[1], v[2], v[3], 0, end, 0, end, 0, end, 0, end});
        } else {
            continue;
        }
        windows.emplace_back(connection_, clients[index], XCB_EVENT_MASK_PROPERTY_CHANGE);
    }
    strutWindows_ = std::move(windows);
    return result;
}

std::uint32_t WorkAreas::currentDesktop() const
{
    return connection_.property32(connection_.root(), desktop_, XCB_ATOM_CARDINAL).value_or(0);
}

// Struts are measured from the edges of the whole X screen. One that does not reach into a display, or that would take
// more than half of it, is meant for another display.
PixelRect WorkAreas::without(const PixelRect& display, const Strut& strut, const PixelRect& screen)
{
    int left = display.x;
    int top = display.y;
    int right = display.x + display.width;
    int bottom = display.y + display.height;
    const auto isForThis = [](long depth, int extent) { return depth > 0 && depth <= extent / 2; };

    const long fromLeft = static_cast<long>(strut.left) - display.x;
    if (strut.left && isForThis(fromLeft, display.width) &&
        rangesMeet(display.y, display.height, strut.leftStart, strut.leftEnd))
        left += static_cast<int>(fromLeft);
    const long fromRight = right - (screen.width - static_cast<long>(strut.right));
    if (strut.right && isForThis(fromRight, display.width) &&
        rangesMeet(display.y, display.height, strut.rightStart, strut.rightEnd))
        right -= static_cast<int>(fromRight);
    const long fromTop = static_cast<long>(strut.top) - display.y;
    if (strut.top && isForThis(fromTop, display.height) &&
        rangesMeet(display.x, display.width, strut.topStart, strut.topEnd))
        top += static_cast<int>(fromTop);
    const long fromBottom = bottom - (screen.height - static_cast<long>(strut.bottom));
    if (strut.bottom && isForThis(fromBottom, display.height) &&
        rangesMeet(display.x, display.width, strut.bottomStart, strut.bottomEnd))
        bottom -= static_cast<int>(fromBottom);
    return {left, top, right - left, bottom - top};
}

} // namespace nimbrale::x11
