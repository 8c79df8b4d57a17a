#include "tests/support/private_desktop.h"

#include "tests/support/rfb_client.h"
#include "tests/support/x_reply.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <sys/uio.h>
#include <xcb/randr.h>
#include <xcb/xcb.h>
#include <xcb/xcbext.h>

namespace nimbrale::test {

namespace {

constexpr double millimetresPerInch = 25.4;
constexpr double nominalDotsPerInch = 96;

std::uint32_t millimetres(int pixels)
{
    return static_cast<std::uint32_t>(std::lround(pixels * millimetresPerInch / nominalDotsPerInch));
}

std::string nameOf(xcb_connection_t* connection, xcb_atom_t atom)
{
    const Reply<xcb_get_atom_name_reply_t> reply(
        xcb_get_atom_name_reply(connection, xcb_get_atom_name(connection, atom), nullptr));
    if (!reply)
        return {};
    return {xcb_get_atom_name_name(reply.get()), static_cast<std::size_t>(xcb_get_atom_name_name_length(reply.get()))};
}

/// xcb_randr_set_monitor of libxcb 1.15 sends a part that it never filled in, so the request is put together here.
void sendSetMonitor(xcb_connection_t* connection, xcb_window_t root, const xcb_randr_monitor_info_t& info)
{
    struct {
        xcb_randr_set_monitor_request_t header;
        xcb_randr_monitor_info_t monitor;
    } request{{0, 0, 0, root}, info};
    const xcb_protocol_request_t protocol{1, &xcb_randr_id, XCB_RANDR_SET_MONITOR, 1};
    // xcb writes into the two parts before the first.
    std::array<iovec, 3> parts{};
    parts[2] = {&request, sizeof request};
    xcb_send_request(connection, 0, &parts[2], &protocol);
}

} // namespace

std::vector<PrivateDesktop::Monitor> PrivateDesktop::monitors() const
{
    const Reply<xcb_randr_get_monitors_reply_t> reply(
        xcb_randr_get_monitors_reply(connection_, xcb_randr_get_monitors(connection_, screen_->root, 1), nullptr));
    std::vector<Monitor> monitors;
    if (!reply)
        return monitors;
    for (auto each = xcb_randr_get_monitors_monitors_iterator(reply.get()); each.rem;
         xcb_randr_monitor_info_next(&each)) {
        const xcb_randr_monitor_info_t& info = *each.data;
        monitors.push_back({nameOf(connection_, info.name), QRect(info.x, info.y, info.width, info.height),
                            info.primary != 0, info.automatic != 0, info.nOutput});
    }
    return monitors;
}

std::optional<PrivateDesktop::Monitor> PrivateDesktop::monitorNamed(const std::string& name) const
{
    for (const Monitor& monitor : monitors()) {
        if (monitor.name == name)
            return monitor;
    }
    return std::nullopt;
}

QSize PrivateDesktop::screenSize() const
{
    const Reply<xcb_get_geometry_reply_t> reply(
        xcb_get_geometry_reply(connection_, xcb_get_geometry(connection_, screen_->root), nullptr));
    return reply ? QSize(reply->width, reply->height) : QSize();
}

void PrivateDesktop::setMonitor(const std::string& name, const QRect& geometry)
{
    if (monitorNamed(name))
        deleteMonitor(name);
    xcb_randr_monitor_info_t info{};
    info.name = atom(name);
    info.x = static_cast<std::int16_t>(geometry.x());
    info.y = static_cast<std::int16_t>(geometry.y());
    info.width = static_cast<std::uint16_t>(geometry.width());
    info.height = static_cast<std::uint16_t>(geometry.height());
    info.width_in_millimeters = millimetres(geometry.width());
    info.height_in_millimeters = millimetres(geometry.height());
    sendSetMonitor(connection_, screen_->root, info);
    synchronize();
}

void PrivateDesktop::deleteMonitor(const std::string& name)
{
    xcb_randr_delete_monitor(connection_, screen_->root, atom(name));
    synchronize();
}

bool PrivateDesktop::resizeScreen(const QSize& size)
{
    const auto cookie = xcb_randr_set_screen_size_checked(
        connection_, screen_->root, static_cast<std::uint16_t>(size.width()), static_cast<std::uint16_t>(size.height()),
        millimetres(size.width()), millimetres(size.height()));
    return !Reply<xcb_generic_error_t>(xcb_request_check(connection_, cookie));
}

std::string PrivateDesktop::outputName(int index) const
{
    switch (options_.server) {
    case Server::xvnc:
        return "VNC-" + std::to_string(index);
    case Server::xorgDummy:
        return "DUMMY" + std::to_string(index);
    case Server::xvfb:
        return "screen";
    }
    return {};
}

bool PrivateDesktop::arrangeOutputs(const std::vector<QRect>& rectangles)
{
    switch (options_.server) {
    case Server::xvnc:
        if (options_.vncPort || !arrangeVncOutputs(folder_ / "rfb", rectangles).empty())
            return false;
        break;
    case Server::xorgDummy:
        for (std::size_t index = 1; index < rectangles.size(); ++index)
            plug(outputName(static_cast<int>(index)), rectangles[index]);
        break;
    case Server::xvfb:
        break;
    }
    return waitUntil(
        [&] {
            const std::vector<Monitor> present = monitors();
            return std::all_of(rectangles.begin(), rectangles.end(), [&](const QRect& rectangle) {
                return std::any_of(present.begin(), present.end(),
                                   [&](const Monitor& monitor) { return monitor.geometry == rectangle; });
            });
        },
        Milliseconds{3000});
}

void PrivateDesktop::unplug(const std::string& output)
{
    run("xrandr", {"--output", output, "--off"});
}

void PrivateDesktop::plug(const std::string& output, const QRect& geometry)
{
    const std::string mode = std::to_string(geometry.width()) + "x" + std::to_string(geometry.height());
    // An output of the dummy driver counts as connected once it has a mode.
    if (options_.server == Server::xorgDummy)
        run("xrandr", {"--addmode", output, mode});
    run("xrandr", {"--output", output, "--mode", mode, "--pos",
                   std::to_string(geometry.x()) + "x" + std::to_string(geometry.y())});
}

} // namespace nimbrale::test
