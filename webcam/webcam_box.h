#pragma once

#include "geometry/display_geometry.h"
#include "platform/geometry.h"
#include "settings/app_settings.h"

namespace nimbrale {

/// A webcam's box: where its picture lies in the region, in points from the region's top-left corner, y downward. All
/// functions here are pure and may be called on any thread.

/// No side of a webcam is shorter, in points, unless the region is.
inline constexpr double smallestWebcamSide = 120;

/// The nearest box that lies in a region of that size and suits the shape: a circle's is a square. Rounded outward to
/// whole points.
[[nodiscard]] Rect clampedWebcamBox(const Rect& box, Size region, AppSettings::WebcamShape shape);

/// The box that the settings hold, not clamped. One that was never placed is put into the region's bottom-right corner,
/// with room beside it.
[[nodiscard]] Rect storedWebcamBox(const AppSettings& settings, Size region);

/// Screen coordinates to a box, and back. `region` in region coordinates of that display.
[[nodiscard]] Rect webcamBoxOf(const Rect& screenFrame, const DisplayGeometry& geometry, const Rect& region);
[[nodiscard]] Rect webcamScreenFrameOf(const Rect& box, const DisplayGeometry& geometry, const Rect& region);

} // namespace nimbrale
