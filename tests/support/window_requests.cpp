#include "tests/support/window_requests.h"

#include "tests/support/x_reply.h"

#include <xcb/xcb.h>

namespace nimbrale::test {

namespace {

/// How a pager names itself, which window managers let do what they would not let every program.
constexpr std::uint32_t sourceIsPager = 2;

} // namespace

void WindowRequests::send(const std::string& message, std::uint32_t window, std::uint32_t value, std::uint32_t second,
                          std::uint32_t third) const
{
    const xcb_window_t root = desktop_.screen().root;
    xcb_client_message_event_t event = {};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = atom(message);
    event.data.data32[0] = value;
    event.data.data32[1] = second;
    event.data.data32[2] = third;
    xcb_send_event(desktop_.connection(), 0, root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&event));
    desktop_.synchronize();
}

void WindowRequests::minimize(std::uint32_t window) const
{
    constexpr std::uint32_t iconicState = 3;
    send("WM_CHANGE_STATE", window, iconicState);
}

void WindowRequests::activate(std::uint32_t window, std::uint32_t time) const
{
    send("_NET_ACTIVE_WINDOW", window, sourceIsPager, time);
}

void WindowRequests::keepAbove(std::uint32_t window) const
{
    constexpr std::uint32_t add = 1;
    send("_NET_WM_STATE", window, add, atom("_NET_WM_STATE_ABOVE"));
}

void WindowRequests::putAt(std::uint32_t window, QPoint corner) const
{
    constexpr std::uint32_t hasPosition = 3 << 8;
    send("_NET_MOVERESIZE_WINDOW", window, XCB_GRAVITY_NORTH_WEST | hasPosition | sourceIsPager << 12,
         std::uint32_t(corner.x()), std::uint32_t(corner.y()));
}

void WindowRequests::moveToWorkspace(std::uint32_t window, std::uint32_t workspace) const
{
    send("_NET_WM_DESKTOP", window, workspace, sourceIsPager);
}

void WindowRequests::showOnAllWorkspaces(std::uint32_t window) const
{
    moveToWorkspace(window, 0xffffffff);
}

void WindowRequests::switchToWorkspace(std::uint32_t workspace) const
{
    send("_NET_CURRENT_DESKTOP", desktop_.screen().root, workspace, XCB_CURRENT_TIME);
}

void WindowRequests::setWorkspaceCount(std::uint32_t count) const
{
    send("_NET_NUMBER_OF_DESKTOPS", desktop_.screen().root, count);
}

std::vector<std::uint32_t> WindowRequests::rootNumbers(const std::string& property) const
{
    const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        desktop_.connection(),
        xcb_get_property(desktop_.connection(), 0, desktop_.screen().root, atom(property), XCB_ATOM_CARDINAL, 0, 4),
        nullptr));
    if (!reply || reply->format != 32)
        return {};
    const auto* const numbers = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
    return {numbers, numbers + xcb_get_property_value_length(reply.get()) / 4};
}

std::uint32_t WindowRequests::workspaceCount() const
{
    const std::vector<std::uint32_t> numbers = rootNumbers("_NET_NUMBER_OF_DESKTOPS");
    return numbers.empty() ? 0 : numbers.front();
}

std::optional<std::uint32_t> WindowRequests::currentWorkspace() const
{
    const std::vector<std::uint32_t> numbers = rootNumbers("_NET_CURRENT_DESKTOP");
    return numbers.empty() ? std::nullopt : std::optional(numbers.front());
}

QRect WindowRequests::workArea() const
{
    const std::vector<std::uint32_t> numbers = rootNumbers("_NET_WORKAREA");
    if (numbers.size() < 4)
        return {};
    return {static_cast<int>(numbers[0]), static_cast<int>(numbers[1]), static_cast<int>(numbers[2]),
            static_cast<int>(numbers[3])};
}

std::uint32_t WindowRequests::atom(const std::string& name) const
{
    const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        desktop_.connection(),
        xcb_intern_atom(desktop_.connection(), 0, static_cast<std::uint16_t>(name.size()), name.data()), nullptr));
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

} // namespace nimbrale::test
