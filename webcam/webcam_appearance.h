#pragma once

#include "platform/geometry.h"
#include "platform/layer.h"

#include <memory>

namespace nimbrale {

/// How the webcam is to be drawn into the shared picture.
struct WebcamAppearance {
    /// Shows the camera in its shape. A layer is in one tree at a time, so this one is for the shared picture alone.
    /// Absent when there is no webcam.
    std::shared_ptr<Layer> picture;
    /// Points from the region's top-left corner, y grows downward.
    Rect box;
    /// Whether the webcam's panel is faded because the pointer is over it.
    bool isFaded = false;
};

} // namespace nimbrale
