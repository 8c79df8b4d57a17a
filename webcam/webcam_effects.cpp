#include "webcam/webcam_effects.h"

#include "platform/log.h"

#include <span>
#include <utility>

namespace nimbrale {

WebcamEffects::WebcamEffects(std::unique_ptr<PersonSegmentation> segmentation, std::function<TimePoint()> now)
    : segmentation_(std::move(segmentation)), steadyMask_(std::move(now))
{}

std::shared_ptr<const BufferSurface> WebcamEffects::process(const PixelBuffer& picture, Background background)
{
    if (background == Background::original)
        return nullptr;
    const Result<PersonMask> mask = segmentation_->findPerson(picture);
    if (!mask) {
        qCCritical(webcamLog, "Finding the person failed: %s", mask.error().message.c_str());
        return nullptr;
    }
    maskFilter_.setSizes(mask->width, mask->height, picture.width(), picture.height());
    maskFilter_.setMask(steadyMask_.add(*mask));

    BufferSurfacePool::Canvas canvas = pool_.take(picture.width(), picture.height());
    if (background == Background::blurred) {
        blendOverBlur(picture, canvas.pixels());
        return BufferSurfacePool::finish(std::move(canvas), SurfaceAlpha::opaque);
    }
    blendOverNothing(picture, canvas.pixels());
    return BufferSurfacePool::finish(std::move(canvas), SurfaceAlpha::premultiplied);
}

void WebcamEffects::blendOverBlur(const PixelBuffer& picture, PixelBuffer& result)
{
    backgroundBlur_.setPicture(picture);
    for (int y = 0; y < picture.height(); ++y)
        blend_.overBackground({picture.row(y), picture.stride()}, maskFilter_.row(y), backgroundBlur_.row(y),
                              {result.row(y), result.stride()});
}

void WebcamEffects::blendOverNothing(const PixelBuffer& picture, PixelBuffer& result)
{
    for (int y = 0; y < picture.height(); ++y)
        blend_.overNothing({picture.row(y), picture.stride()}, maskFilter_.row(y), {result.row(y), result.stride()});
}

} // namespace nimbrale
