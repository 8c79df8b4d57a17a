#pragma once

#include "platform/geometry.h"

#include <array>
#include <optional>
#include <vector>

namespace nimbrale {

enum class WebcamControl { move, resize, close, settings };

/// Where the controls lie on the webcam's panel. A pure value; view coordinates: points from the panel's bottom-left
/// corner, y upward. Any thread.
class WebcamControlsLayout {
public:
    /// The distance of the controls from the view's edges.
    static constexpr double inset = 6;
    /// In the order of hit testing.
    static constexpr std::array hitOrder{WebcamControl::close, WebcamControl::settings, WebcamControl::move,
                                         WebcamControl::resize};

    explicit WebcamControlsLayout(Size view) : view_(view) {}

    [[nodiscard]] Rect rect(WebcamControl control) const;
    /// The first in the order of hit testing that holds `point`.
    [[nodiscard]] std::optional<WebcamControl> controlAt(Point point) const;
    /// The pixels that `controlAt` finds, for `Panel::setMouseRegion`; `scale` is pixels per point.
    [[nodiscard]] std::vector<Rect> hitRegion(double scale) const;

private:
    Size view_;
};

} // namespace nimbrale
