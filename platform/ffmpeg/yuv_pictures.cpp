#include "platform/ffmpeg/yuv_pictures.h"

#include "platform/ffmpeg/yuv_conversion.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace nimbrale::ffmpeg {

namespace {

/// More places than this are kept as the rectangle around them all.
constexpr std::size_t mostPlaces = 64;

YuvPlanes planesOf(const AVFrame& frame)
{
    return {.luma = frame.data[0],
            .blueChroma = frame.data[1],
            .redChroma = frame.data[2],
            .lumaStride = frame.linesize[0],
            .blueChromaStride = frame.linesize[1],
            .redChromaStride = frame.linesize[2]};
}

} // namespace

YuvPictures::YuvPictures(int width, int height)
    : width_(width), height_(height), free_(std::make_shared<FreePictures>())
{}

void YuvPictures::noteChanges(const std::vector<PixelRect>& changed)
{
    for (const std::shared_ptr<Picture>& picture : pictures_) {
        std::vector<PixelRect>& stale = picture->stale;
        stale.insert(stale.end(), changed.begin(), changed.end());
        if (stale.size() <= mostPlaces)
            continue;
        PixelRect around;
        for (const PixelRect& rect : stale)
            around = around.unitedWith(rect);
        stale.assign({around});
    }
}

std::shared_ptr<YuvPictures::Picture> YuvPictures::take()
{
    {
        const std::lock_guard lock(free_->mutex);
        if (!free_->pictures.empty()) {
            // The one released last is the least out of date.
            std::shared_ptr<Picture> picture = std::move(free_->pictures.back());
            free_->pictures.pop_back();
            return picture;
        }
    }
    auto picture = std::make_shared<Picture>(
        Picture{newPicture(AV_PIX_FMT_YUV420P, width_, height_), {PixelRect{0, 0, width_, height_}}});
    pictures_.push_back(picture);
    return picture;
}

std::shared_ptr<const AVFrame> YuvPictures::convert(const PixelBuffer& pixels)
{
    std::shared_ptr<Picture> picture = take();
    for (const PixelRect& rect : picture->stale)
        convertToYuv(pixels, rect, planesOf(*picture->frame));
    picture->stale.clear();
    const AVFrame* const frame = picture->frame.get();
    return {frame, [free = free_, picture = std::move(picture)](const AVFrame*) {
                const std::lock_guard lock(free->mutex);
                free->pictures.push_back(picture);
            }};
}

} // namespace nimbrale::ffmpeg
