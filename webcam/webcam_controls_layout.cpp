#include "webcam/webcam_controls_layout.h"

#include "controls/hit_region.h"
#include "geometry/display_geometry.h"

#include <algorithm>

namespace nimbrale {

namespace {

constexpr Size handleSize{46, 22};
constexpr double buttonSize = 22;
/// From the top of a button to the top of the one below.
constexpr double buttonStep = 28;

} // namespace

Rect WebcamControlsLayout::rect(WebcamControl control) const
{
    const double right = view_.width - inset - buttonSize;
    const double top = view_.height - inset - buttonSize;
    switch (control) {
    case WebcamControl::move:
        return {roundHalfAwayFromZero(view_.width / 2 - handleSize.width / 2), top, handleSize.width,
                handleSize.height};
    case WebcamControl::close:
        return {right, top, buttonSize, buttonSize};
    case WebcamControl::settings:
        return {right, top - buttonStep, buttonSize, buttonSize};
    case WebcamControl::resize:
        break;
    }
    return {right, inset, buttonSize, buttonSize};
}

std::optional<WebcamControl> WebcamControlsLayout::controlAt(Point point) const
{
    const auto* const hit = std::find_if(hitOrder.begin(), hitOrder.end(),
                                         [&](WebcamControl control) { return pointerIsIn(rect(control), point); });
    return hit == hitOrder.end() ? std::nullopt : std::optional(*hit);
}

std::vector<Rect> WebcamControlsLayout::hitRegion(double scale) const
{
    HitRegion region(view_, scale);
    for (const WebcamControl control : hitOrder)
        region.addRect(rect(control));
    return region.rects();
}

} // namespace nimbrale
