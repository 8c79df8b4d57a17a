#include "geometry/picture_size.h"

#include "geometry/display_geometry.h"

namespace nimbrale {

namespace {

/// A side that is a whole number of pixels may miss it by the rounding of doubles.
constexpr double arithmeticSlack = 1e-6;

} // namespace

PixelSize pictureSize(Size region, double scale)
{
    return {truncatedToInteger(region.width * scale + arithmeticSlack),
            truncatedToInteger(region.height * scale + arithmeticSlack)};
}

Rect picturedPart(const Rect& region, double scale)
{
    const PixelSize picture = pictureSize(region.size(), scale);
    return {region.x, region.y, static_cast<double>(picture.width) / scale,
            static_cast<double>(picture.height) / scale};
}

} // namespace nimbrale
