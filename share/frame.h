#pragma once

#include "platform/geometry.h"
#include "platform/surface.h"

#include <memory>

namespace nimbrale {

/// A captured picture and the area of the display that it shows.
struct Frame {
    /// Shared with the capture, never copied. Later pictures of the same area are drawn over it; one of another area is
    /// not, for as long as this one is held.
    std::shared_ptr<const Surface> surface;
    /// Region coordinates of the captured display: the origin of the area that the picture shows and the picture's own
    /// size in points.
    Rect region;
};

} // namespace nimbrale
