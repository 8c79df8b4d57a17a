#include "platform/x11/displays/randr_layout.h"

#include "platform/x11/server/handles.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <sys/uio.h>
#include <tuple>
#include <xcb/xcbext.h>

namespace nimbrale::x11 {

namespace {

using ScreenResources = Reply<xcb_randr_get_screen_resources_current_reply_t>;

ScreenResources screenResources(const Connection& connection)
{
    return ScreenResources(xcb_randr_get_screen_resources_current_reply(
        connection.get(), xcb_randr_get_screen_resources_current(connection.get(), connection.root()), nullptr));
}

// The part of the desktop that a CRTC's picture wanders over as the pointer pushes its edges; empty without panning.
PixelRect panningArea(xcb_connection_t* connection, xcb_randr_crtc_t crtc)
{
    const Reply<xcb_randr_get_panning_reply_t> panning(
        xcb_randr_get_panning_reply(connection, xcb_randr_get_panning(connection, crtc), nullptr));
    if (!panning)
        return {};
    return {panning->left, panning->top, panning->width, panning->height};
}

std::uint32_t millimeters(int pixels, double pitch)
{
    return static_cast<std::uint32_t>(std::max(1L, std::lround(pixels * pitch)));
}

/// xcb_randr_set_monitor_checked of libxcb 1.15 sends a part that it never filled in, which ends the process, so the
/// request is put together here.
xcb_void_cookie_t sendSetMonitor(xcb_connection_t* connection, xcb_window_t root,
                                 const xcb_randr_monitor_info_t& monitor, xcb_randr_output_t output)
{
    struct {
        xcb_randr_set_monitor_request_t header;
        xcb_randr_monitor_info_t monitor;
        xcb_randr_output_t output;
    } request{{0, 0, 0, root}, monitor, output};
    const xcb_protocol_request_t protocol{1, &xcb_randr_id, XCB_RANDR_SET_MONITOR, 1};
    // xcb writes into the two parts before the first.
    std::array<iovec, 3> parts{};
    parts[2] = {&request, sizeof request - (monitor.nOutput == 0 ? sizeof output : 0)};
    return {xcb_send_request(connection, XCB_REQUEST_CHECKED, &parts[2], &protocol)};
}

} // namespace

RandrLayout::RandrLayout(Connection& connection) : connection_(connection) {}

std::vector<RandrMonitor> RandrLayout::monitors(MonitorScope scope) const
{
    const Reply<xcb_randr_get_monitors_reply_t> reply(xcb_randr_get_monitors_reply(
        connection_.get(),
        xcb_randr_get_monitors(connection_.get(), connection_.root(), scope == MonitorScope::active ? 1 : 0), nullptr));
    std::vector<RandrMonitor> monitors;
    if (!reply)
        return monitors;
    for (auto monitor = xcb_randr_get_monitors_monitors_iterator(reply.get()); monitor.rem;
         xcb_randr_monitor_info_next(&monitor)) {
        const xcb_randr_monitor_info_t& info = *monitor.data;
        const xcb_randr_output_t* const outputs = xcb_randr_monitor_info_outputs(monitor.data);
        monitors.push_back({info.name,
                            info.primary != 0,
                            info.automatic != 0,
                            {outputs, outputs + xcb_randr_monitor_info_outputs_length(monitor.data)},
                            {info.x, info.y, info.width, info.height}});
    }
    return monitors;
}

std::optional<RandrMonitor> RandrLayout::monitor(xcb_atom_t name) const
{
    for (const RandrMonitor& monitor : monitors(MonitorScope::all)) {
        if (monitor.name == name)
            return monitor;
    }
    return std::nullopt;
}

std::vector<PixelRect> RandrLayout::litAreas() const
{
    std::vector<PixelRect> areas;
    const ScreenResources resources = screenResources(connection_);
    if (!resources)
        return areas;
    const xcb_randr_crtc_t* const crtcs = xcb_randr_get_screen_resources_current_crtcs(resources.get());
    for (int index = 0; index < resources->num_crtcs; ++index) {
        const Reply<xcb_randr_get_crtc_info_reply_t> crtc(xcb_randr_get_crtc_info_reply(
            connection_.get(), xcb_randr_get_crtc_info(connection_.get(), crtcs[index], resources->config_timestamp),
            nullptr));
        if (!crtc || crtc->mode == XCB_NONE)
            continue;
        const PixelRect lit{crtc->x, crtc->y, crtc->width, crtc->height};
        areas.push_back(lit.unitedWith(panningArea(connection_.get(), crtcs[index])));
    }
    return areas;
}

PixelRect RandrLayout::realBounds(xcb_atom_t except) const
{
    PixelRect bounds;
    for (const PixelRect& area : litAreas())
        bounds = bounds.unitedWith(area);
    for (const RandrMonitor& monitor : monitors(MonitorScope::active)) {
        if (monitor.name != except)
            bounds = bounds.unitedWith(monitor.pixels);
    }
    return bounds;
}

PixelRect RandrLayout::screenPixels() const
{
    const Reply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(connection_.get(), xcb_get_geometry(connection_.get(), connection_.root()), nullptr));
    if (!geometry)
        return {};
    return {0, 0, geometry->width, geometry->height};
}

Result<void> RandrLayout::setMonitor(xcb_atom_t name, const PixelRect& pixels, const PixelPitch& pitch,
                                     xcb_randr_output_t output)
{
    xcb_randr_monitor_info_t monitor = {};
    monitor.name = name;
    monitor.x = static_cast<std::int16_t>(pixels.x);
    monitor.y = static_cast<std::int16_t>(pixels.y);
    monitor.width = static_cast<std::uint16_t>(pixels.width);
    monitor.height = static_cast<std::uint16_t>(pixels.height);
    monitor.width_in_millimeters = millimeters(pixels.width, pitch.horizontal);
    monitor.height_in_millimeters = millimeters(pixels.height, pitch.vertical);
    monitor.nOutput = output == XCB_NONE ? 0 : 1;
    return check(sendSetMonitor(connection_.get(), connection_.root(), monitor, output),
                 "The X server did not add the virtual display.");
}

Result<void> RandrLayout::deleteMonitor(xcb_atom_t name)
{
    return check(xcb_randr_delete_monitor_checked(connection_.get(), connection_.root(), name),
                 "The X server did not remove the virtual display.");
}

Result<void> RandrLayout::setScreenSize(int width, int height, const PixelPitch& pitch)
{
    return check(
        xcb_randr_set_screen_size_checked(connection_.get(), connection_.root(), static_cast<std::uint16_t>(width),
                                          static_cast<std::uint16_t>(height), millimeters(width, pitch.horizontal),
                                          millimeters(height, pitch.vertical)),
        "The X server cannot make its screen " + std::to_string(width) + "×" + std::to_string(height) + " pixels big.");
}

xcb_randr_output_t RandrLayout::primaryOutput() const
{
    const Reply<xcb_randr_get_output_primary_reply_t> reply(xcb_randr_get_output_primary_reply(
        connection_.get(), xcb_randr_get_output_primary(connection_.get(), connection_.root()), nullptr));
    return reply ? reply->output : XCB_NONE;
}

void RandrLayout::setPrimaryOutput(xcb_randr_output_t output)
{
    // An output that is gone by now is no loss: its going is announced, and the next one is chosen then.
    const xcb_void_cookie_t cookie =
        xcb_randr_set_output_primary_checked(connection_.get(), connection_.root(), output);
    Reply<xcb_generic_error_t>(xcb_request_check(connection_.get(), cookie));
}

xcb_randr_output_t RandrLayout::outputForPrimary(xcb_atom_t except) const
{
    xcb_randr_output_t best = XCB_NONE;
    PixelRect bestPixels;
    for (const RandrMonitor& monitor : monitors(MonitorScope::active)) {
        if (monitor.outputs.empty() || monitor.name == except)
            continue;
        const bool isNearer = std::tie(monitor.pixels.x, monitor.pixels.y) < std::tie(bestPixels.x, bestPixels.y);
        if (best != XCB_NONE && !isNearer)
            continue;
        best = monitor.outputs.front();
        bestPixels = monitor.pixels;
    }
    return best;
}

xcb_randr_output_t RandrLayout::idleOutput(xcb_atom_t except, xcb_randr_output_t preferred) const
{
    const ScreenResources resources = screenResources(connection_);
    if (!resources)
        return XCB_NONE;
    std::vector<xcb_randr_output_t> borne;
    for (const RandrMonitor& monitor : monitors(MonitorScope::all)) {
        if (monitor.name != except)
            borne.insert(borne.end(), monitor.outputs.begin(), monitor.outputs.end());
    }
    const xcb_randr_output_t* const outputs = xcb_randr_get_screen_resources_current_outputs(resources.get());
    xcb_randr_output_t found = XCB_NONE;
    for (int index = 0; index < resources->num_outputs; ++index) {
        const xcb_randr_output_t output = outputs[index];
        const Reply<xcb_randr_get_output_info_reply_t> info(xcb_randr_get_output_info_reply(
            connection_.get(), xcb_randr_get_output_info(connection_.get(), output, resources->config_timestamp),
            nullptr));
        const bool isIdle = info && info->connection == XCB_RANDR_CONNECTION_DISCONNECTED && info->crtc == XCB_NONE;
        if (!isIdle || std::find(borne.begin(), borne.end(), output) != borne.end())
            continue;
        if (output == preferred)
            return output;
        found = output;
    }
    return found;
}

bool RandrLayout::hasPrimaryMonitor() const
{
    const std::vector<RandrMonitor> active = monitors(MonitorScope::active);
    return std::any_of(active.begin(), active.end(), [](const RandrMonitor& monitor) { return monitor.isPrimary; });
}

PixelPitch RandrLayout::initialPitch() const
{
    const xcb_screen_t& screen = connection_.screen();
    if (screen.width_in_millimeters == 0 || screen.height_in_millimeters == 0)
        return {};
    return {static_cast<double>(screen.width_in_millimeters) / screen.width_in_pixels,
            static_cast<double>(screen.height_in_millimeters) / screen.height_in_pixels};
}

Result<void> RandrLayout::check(xcb_void_cookie_t cookie, const std::string& what) const
{
    const Reply<xcb_generic_error_t> error(xcb_request_check(connection_.get(), cookie));
    if (error)
        return fail(ErrorCode::unsupported, what + " (X error " + std::to_string(error->error_code) + ")");
    if (connection_.isLost())
        return fail(ErrorCode::permanent, what);
    return {};
}

} // namespace nimbrale::x11
