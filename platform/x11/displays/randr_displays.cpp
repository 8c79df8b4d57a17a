#include "platform/x11/displays/randr_displays.h"

#include "platform/x11/displays/edid.h"
#include "platform/x11/server/handles.h"

#include <algorithm>

namespace nimbrale::x11 {

namespace {

constexpr int monitorsVersion = 105;
constexpr int outputsVersion = 102;
constexpr std::uint32_t edidLength = 128 / 4;

} // namespace

std::string RandrDisplays::modelName(const std::vector<xcb_randr_output_t>& outputs) const
{
    for (const xcb_randr_output_t output : outputs) {
        const Reply<xcb_randr_get_output_property_reply_t> reply(xcb_randr_get_output_property_reply(
            connection_.get(),
            xcb_randr_get_output_property(connection_.get(), output, connection_.atom("EDID"), XCB_ATOM_ANY, 0,
                                          edidLength, 0, 0),
            nullptr));
        if (!reply || reply->format != 8)
            continue;
        const std::uint8_t* const data = xcb_randr_get_output_property_data(reply.get());
        const std::string name =
            modelNameFromEdid({data, data + xcb_randr_get_output_property_data_length(reply.get())});
        if (!name.empty())
            return name;
    }
    return {};
}

std::vector<RandrDisplay> RandrDisplays::monitors() const
{
    std::vector<RandrDisplay> result;
    for (const RandrMonitor& monitor : layout_.monitors(MonitorScope::active)) {
        const std::string name = connection_.atomName(monitor.name);
        // Whoever made a monitor by hand has named it, whatever it bears.
        const std::string model = monitor.isAutomatic ? modelName(monitor.outputs) : std::string();
        result.push_back({name, model.empty() ? name : model, monitor.name, monitor.isPrimary, monitor.pixels});
    }
    return result;
}

std::vector<RandrDisplay> RandrDisplays::outputs() const
{
    std::vector<RandrDisplay> result;
    const Reply<xcb_randr_get_screen_resources_reply_t> resources(xcb_randr_get_screen_resources_reply(
        connection_.get(), xcb_randr_get_screen_resources(connection_.get(), connection_.root()), nullptr));
    if (!resources)
        return result;
    const xcb_randr_output_t primary = connection_.randrVersion() > outputsVersion ? layout_.primaryOutput() : XCB_NONE;
    const xcb_randr_output_t* const outputs = xcb_randr_get_screen_resources_outputs(resources.get());
    for (int index = 0; index < resources->num_outputs; ++index) {
        const Reply<xcb_randr_get_output_info_reply_t> output(xcb_randr_get_output_info_reply(
            connection_.get(),
            xcb_randr_get_output_info(connection_.get(), outputs[index], resources->config_timestamp), nullptr));
        if (!output || output->crtc == XCB_NONE)
            continue;
        const Reply<xcb_randr_get_crtc_info_reply_t> crtc(xcb_randr_get_crtc_info_reply(
            connection_.get(), xcb_randr_get_crtc_info(connection_.get(), output->crtc, resources->config_timestamp),
            nullptr));
        if (!crtc || crtc->mode == XCB_NONE)
            continue;
        const PixelRect pixels{crtc->x, crtc->y, crtc->width, crtc->height};
        // Outputs that show the same picture are one display.
        if (std::any_of(result.begin(), result.end(),
                        [&](const RandrDisplay& other) { return other.pixels == pixels; }))
            continue;
        const std::string name(reinterpret_cast<const char*>(xcb_randr_get_output_info_name(output.get())),
                               static_cast<std::size_t>(xcb_randr_get_output_info_name_length(output.get())));
        const std::string model = modelName({outputs[index]});
        result.push_back(
            {name, model.empty() ? name : model, connection_.atom(name), outputs[index] == primary, pixels});
    }
    return result;
}

RandrDisplay RandrDisplays::wholeScreen() const
{
    const std::string name = "Screen " + std::to_string(connection_.screenNumber());
    return {name, name, connection_.atom(name), true, layout_.screenPixels()};
}

std::vector<RandrDisplay> RandrDisplays::read() const
{
    std::vector<RandrDisplay> found;
    if (connection_.randrVersion() >= monitorsVersion)
        found = monitors();
    else if (connection_.randrVersion() >= outputsVersion)
        found = outputs();
    std::erase_if(found, [](const RandrDisplay& display) { return display.pixels.isEmpty(); });
    // A server without any display still has a screen that can be seen from afar.
    if (found.empty())
        found.push_back(wholeScreen());
    return found;
}

} // namespace nimbrale::x11
