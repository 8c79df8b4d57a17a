#include "platform/x11/displays/randr_rules.h"

#include <algorithm>
#include <cmath>
#include <tuple>

namespace nimbrale::x11 {

namespace {

std::uint32_t millimeters(int pixels, double pitch)
{
    return static_cast<std::uint32_t>(std::max(1L, std::lround(pixels * pitch)));
}

} // namespace

PixelPitch pitchOf(int width, int height, const SizeInMillimeters& size)
{
    if (size.width == 0 || size.height == 0)
        return {};
    return {static_cast<double>(size.width) / width, static_cast<double>(size.height) / height};
}

SizeInMillimeters millimeters(int width, int height, const PixelPitch& pitch)
{
    return {millimeters(width, pitch.horizontal), millimeters(height, pitch.vertical)};
}

PixelRect boundsOf(const std::vector<PixelRect>& lit, const std::vector<RandrMonitor>& monitors, xcb_atom_t except)
{
    PixelRect bounds;
    for (const PixelRect& area : lit)
        bounds = bounds.unitedWith(area);
    for (const RandrMonitor& monitor : monitors) {
        if (monitor.name != except)
            bounds = bounds.unitedWith(monitor.pixels);
    }
    return bounds;
}

xcb_randr_output_t outputForPrimary(const std::vector<RandrMonitor>& monitors, xcb_atom_t except)
{
    xcb_randr_output_t best = XCB_NONE;
    PixelRect bestPixels;
    for (const RandrMonitor& monitor : monitors) {
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

xcb_randr_output_t unborneOutput(const std::vector<xcb_randr_output_t>& idle, const std::vector<RandrMonitor>& monitors,
                                 xcb_atom_t except, xcb_randr_output_t preferred)
{
    std::vector<xcb_randr_output_t> free = idle;
    for (const RandrMonitor& monitor : monitors) {
        if (monitor.name == except)
            continue;
        for (const xcb_randr_output_t borne : monitor.outputs)
            std::erase(free, borne);
    }
    if (std::find(free.begin(), free.end(), preferred) != free.end())
        return preferred;
    return free.empty() ? xcb_randr_output_t{XCB_NONE} : free.back();
}

} // namespace nimbrale::x11
