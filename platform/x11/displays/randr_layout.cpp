#include "platform/x11/displays/randr_layout.h"

#include "platform/x11/server/handles.h"

#include <algorithm>

namespace nimbrale::x11 {

namespace {

using ScreenResources = Reply<xcb_randr_get_screen_resources_current_reply_t>;

ScreenResources screenResources(const Connection& connection)
{
    return ScreenResources(xcb_randr_get_screen_resources_current_reply(
        connection.get(), xcb_randr_get_screen_resources_current(connection.get(), connection.root()), nullptr));
}

RandrPanning panningOf(xcb_connection_t* connection, xcb_randr_crtc_t crtc)
{
    const Reply<xcb_randr_get_panning_reply_t> panning(
        xcb_randr_get_panning_reply(connection, xcb_randr_get_panning(connection, crtc), nullptr));
    if (!panning || panning->width == 0 || panning->height == 0)
        return {};
    return {crtc,
            {panning->left, panning->top, panning->width, panning->height},
            {panning->track_left, panning->track_top, panning->track_width, panning->track_height},
            {panning->border_left, panning->border_top, panning->border_right, panning->border_bottom}};
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
        areas.push_back(lit.unitedWith(panningOf(connection_.get(), crtcs[index]).area));
    }
    return areas;
}

std::vector<RandrPanning> RandrLayout::pannings() const
{
    std::vector<RandrPanning> pannings;
    const ScreenResources resources = screenResources(connection_);
    if (!resources)
        return pannings;
    const xcb_randr_crtc_t* const crtcs = xcb_randr_get_screen_resources_current_crtcs(resources.get());
    for (int index = 0; index < resources->num_crtcs; ++index) {
        const RandrPanning panning = panningOf(connection_.get(), crtcs[index]);
        if (panning.crtc != XCB_NONE)
            pannings.push_back(panning);
    }
    return pannings;
}

PixelRect RandrLayout::realBounds(xcb_atom_t except) const
{
    return boundsOf(litAreas(), monitors(MonitorScope::active), except);
}

PixelRect RandrLayout::screenPixels() const
{
    const Reply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(connection_.get(), xcb_get_geometry(connection_.get(), connection_.root()), nullptr));
    if (!geometry)
        return {};
    return {0, 0, geometry->width, geometry->height};
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
    return x11::outputForPrimary(monitors(MonitorScope::active), except);
}

xcb_randr_output_t RandrLayout::idleOutput(xcb_atom_t except, xcb_randr_output_t preferred) const
{
    const ScreenResources resources = screenResources(connection_);
    if (!resources)
        return XCB_NONE;
    const xcb_randr_output_t* const outputs = xcb_randr_get_screen_resources_current_outputs(resources.get());
    std::vector<xcb_randr_output_t> idle;
    for (int index = 0; index < resources->num_outputs; ++index) {
        const Reply<xcb_randr_get_output_info_reply_t> info(xcb_randr_get_output_info_reply(
            connection_.get(),
            xcb_randr_get_output_info(connection_.get(), outputs[index], resources->config_timestamp), nullptr));
        if (info && info->connection == XCB_RANDR_CONNECTION_DISCONNECTED && info->crtc == XCB_NONE)
            idle.push_back(outputs[index]);
    }
    return unborneOutput(idle, monitors(MonitorScope::all), except, preferred);
}

bool RandrLayout::hasPrimaryMonitor() const
{
    const std::vector<RandrMonitor> active = monitors(MonitorScope::active);
    return std::any_of(active.begin(), active.end(), [](const RandrMonitor& monitor) { return monitor.isPrimary; });
}

PixelPitch RandrLayout::initialPitch() const
{
    const xcb_screen_t& screen = connection_.screen();
    return pitchOf(screen.width_in_pixels, screen.height_in_pixels,
                   {screen.width_in_millimeters, screen.height_in_millimeters});
}

} // namespace nimbrale::x11
