#pragma once

#include "platform/geometry.h"
#include "settings/app_settings.h"
#include "webcam/webcam_pictures.h"

#include <memory>

namespace nimbrale {

/// Of a webcam under the pointer, on the screen and in the shared picture.
inline constexpr double fadedWebcamOpacity = 0.2;

/// How the webcam is to be drawn into the shared picture.
struct WebcamAppearance {
    /// Absent when there is no webcam; the rest is without meaning then.
    std::shared_ptr<WebcamPictures> camera;
    /// Points from the region's top-left corner, y grows downward.
    Rect box;
    AppSettings::WebcamShape shape = AppSettings::WebcamShape::rounded;
    /// Flipped left to right.
    bool mirrored = true;
    /// Whether the webcam's panel is faded because the pointer is over it.
    bool isFaded = false;
};

} // namespace nimbrale
