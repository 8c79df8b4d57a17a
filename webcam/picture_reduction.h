#pragma once

#include "geometry/picture_size.h"

namespace nimbrale {

/// How often a camera's picture that fills `shown`, in pixels, can be halved and still has as many pixels there, so
/// that no more of them are handed on and drawn than are seen; 0 while `shown` is empty.
[[nodiscard]] int halvingsToShow(PixelSize picture, PixelSize shown);

/// How often a camera's picture is halved before effects are made of it, so that it has 1280 × 720 pixels at most,
/// lying or upright: what an effect costs is bounded, whatever the camera.
[[nodiscard]] int halvingsForEffects(PixelSize picture);

} // namespace nimbrale
