#include "webcam/webcam_effects.h"

#include "platform/log.h"

#include <span>
#include <utility>

namespace nimbrale {

WebcamEffects::WebcamEffects(std::unique_ptr<PersonSegmentation> segmentation, std::function<TimePoint()> now)
    : segmentation_(std::move(segmentation)), steadyMask_(std::move(now))
{}

std::shared_ptr<const BufferSurface> WebcamEffects::process(const PixelBuffer& picture, Background background,
                                                            int halvings)
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

    const bool isBlurred = background == Background::blurred;
    if (isBlurred)
        backgroundBlur_.setPicture(picture);
    BufferSurfacePool::Canvas canvas =
        pool_.take(halvedLength(picture.width(), halvings), halvedLength(picture.height(), halvings));
    const bool isMade = halving_.make(
        picture.width(), picture.height(), halvings,
        [&](int first, int count, std::byte* rows, std::size_t stride) {
            for (int y = first; y < first + count; ++y, rows += stride)
                blendRow(picture, background, y, rows);
            return true;
        },
        canvas.pixels());
    if (!isMade)
        return nullptr;
    return BufferSurfacePool::finish(std::move(canvas), isBlurred ? SurfaceAlpha::opaque : SurfaceAlpha::premultiplied);
}

void WebcamEffects::blendRow(const PixelBuffer& picture, Background background, int y, std::byte* result)
{
    const std::span front(picture.row(y), picture.stride());
    const std::span to(result, picture.stride());
    if (background == Background::blurred)
        blend_.overBackground(front, maskFilter_.row(y), backgroundBlur_.row(y), to);
    else
        blend_.overNothing(front, maskFilter_.row(y), to);
}

} // namespace nimbrale
