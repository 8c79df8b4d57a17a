#include "webcam/webcam_box.h"

#include <algorithm>

namespace nimbrale {

namespace {

constexpr double marginOfFirstPlace = 16;

/// Anything that is no number, which a settings file may hold, becomes `least`.
double between(double least, double value, double most)
{
    return std::min(std::max(least, value), most);
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
    return Rect{x, y, width, height}.integral();
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
