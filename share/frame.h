#pragma once

#include "platform/geometry.h"
#include "platform/surface.h"

#include <memory>

namespace nimbrale {

/// A captured picture and the area of the display that it shows.
struct Frame {
    /// Shared with the capture, never copied. The capture composes its next picture once nobody holds this one, so
    /// that receivers keep it only while they show it.
    std::shared_ptr<const Surface> surface;
    /// Region coordinates of the captured display: the origin of the area that the picture shows and the picture's own
    /// size in points.
    Rect region;
};

} // namespace nimbrale
