#include "webcam/webcam_box.h"

#include <algorithm>
#include <cmath>

namespace nimbrale {

namespace {

constexpr double marginOfFirstPlace = 16;
constexpr double arithmeticSlack = 1e-6;

/// Anything that is no number, which a settings file may hold, becomes `least`.
double between(double least, double value, double most)
{
    return std::min(std::max(least, value), most);
}

/// A point that was computed from a pixel may miss it by the rounding of doubles, which decides nothing.
double withoutNoise(double value)
{
    const double whole = std::round(value);
    return std::abs(value - whole) < arithmeticSlack ? whole : value;
}

} // namespace

Rect clampedWebcamBox(const Rect& box, Size region, AppSettings::WebcamShape shape)
{
    double width = between(smallestWebcamSide, box.width, region.width);
    double height = between(smallestWebcamSide, box.height, region.height);
    if (shape == AppSettings::WebcamShape::circle)
        width = height = std::min(width, height);
    const double x = between(0, box.x, region.width - width);
    const double y = between(0, box.y, region.height - height);
    return Rect{withoutNoise(x), withoutNoise(y), withoutNoise(width), withoutNoise(height)}.integral();
}

Rect storedWebcamBox(const AppSettings& settings, Size region)
{
    const Rect box{settings.webcamX(), settings.webcamY(), settings.webcamWidth(), settings.webcamHeight()};
    if (box.x >= 0)
        return box;
    const Rect sized = clampedWebcamBox({0, 0, box.width, box.height}, region, settings.webcamShape());
    return {region.width - sized.width - marginOfFirstPlace, region.height - sized.height - marginOfFirstPlace,
            sized.width, sized.height};
}

Rect webcamBoxOf(const Rect& screenFrame, const DisplayGeometry& geometry, const Rect& region)
{
    return geometry.region(screenFrame).movedBy(-region.x, -region.y);
}

Rect webcamScreenFrameOf(const Rect& box, const DisplayGeometry& geometry, const Rect& region)
{
    return geometry.screenRect(box.movedBy(region.x, region.y));
}

} // namespace nimbrale
