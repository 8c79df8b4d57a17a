#pragma once

#include "platform/geometry.h"

#include <cstdint>

namespace nimbrale {

/// The size of a picture in pixels.
struct PixelSize {
    std::int64_t width = 0;
    std::int64_t height = 0;

    bool operator==(const PixelSize&) const = default;
};

/// How many pixels the picture of a region of that size has, at `scale` pixels per point. A region of whole points may
/// end within a pixel; the picture leaves that pixel out, since it shows something beyond the region too. Whatever
/// makes, holds or shows a picture takes its size from here. A size that is not finite or does not fit 64 bits is a
/// programming error and ends the program.
[[nodiscard]] PixelSize pictureSize(Size region, double scale);

/// The part of `region` that its picture shows, in the coordinates of `region`, whose y grows downward.
[[nodiscard]] Rect picturedPart(const Rect& region, double scale);

} // namespace nimbrale
