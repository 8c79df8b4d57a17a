#include "platform/ffmpeg/hardware_pictures.h"

#include <libyuv/convert_from.h>
#include <new>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/hwcontext.h>
}

namespace nimbrale::ffmpeg {

namespace {

/// The one that is encoded, the one before that it refers to, and what a driver may hold besides.
constexpr int picturesOnCard = 8;

tl::unexpected<Error> notUsable(const char* what, int status)
{
    return fail(ErrorCode::unsupported, std::string(what) + ": " + avErrorText(status) + ".");
}

Result<BufferHandle> openCard(const std::string& device, int width, int height)
{
    AVBufferRef* opened = nullptr;
    if (const int status = av_hwdevice_ctx_create(&opened, AV_HWDEVICE_TYPE_VAAPI, device.c_str(), nullptr, 0);
        status != 0)
        return notUsable("The graphics card cannot be opened", status);
    const BufferHandle card(opened);
    BufferHandle pictures(av_hwframe_ctx_alloc(card.get()));
    if (!pictures)
        throw std::bad_alloc();
    auto& description = *reinterpret_cast<AVHWFramesContext*>(pictures->data);
    description.format = AV_PIX_FMT_VAAPI;
    description.sw_format = AV_PIX_FMT_NV12;
    description.width = width;
    description.height = height;
    description.initial_pool_size = picturesOnCard;
    if (const int status = av_hwframe_ctx_init(pictures.get()); status != 0)
        return notUsable("The graphics card has no room for pictures", status);
    return pictures;
}

FrameHandle interleaved(const AVFrame& picture)
{
    FrameHandle copy = newPicture(AV_PIX_FMT_NV12, picture.width, picture.height);
    libyuv::I420ToNV12(picture.data[0], picture.linesize[0], picture.data[1], picture.linesize[1], picture.data[2],
                       picture.linesize[2], copy->data[0], copy->linesize[0], copy->data[1], copy->linesize[1],
                       picture.width, picture.height);
    return copy;
}

} // namespace

Result<HardwarePictures> HardwarePictures::create(AVCodecContext& context, const std::string& device)
{
    if (device.empty()) {
        context.pix_fmt = AV_PIX_FMT_NV12;
        return HardwarePictures(nullptr);
    }
    Result<BufferHandle> card = openCard(device, context.width, context.height);
    if (!card)
        return tl::make_unexpected(card.error());
    context.pix_fmt = AV_PIX_FMT_VAAPI;
    context.hw_frames_ctx = av_buffer_ref(card->get());
    if (!context.hw_frames_ctx)
        throw std::bad_alloc();
    return HardwarePictures(*std::move(card));
}

Result<FrameHandle> HardwarePictures::copy(const AVFrame& picture) const
{
    FrameHandle inMemory = interleaved(picture);
    if (!card_)
        return inMemory;
    FrameHandle onCard = newFrame();
    if (const int status = av_hwframe_get_buffer(card_.get(), onCard.get(), 0); status != 0)
        return notUsable("The graphics card has no room for a picture", status);
    if (const int status = av_hwframe_transfer_data(onCard.get(), inMemory.get(), 0); status != 0)
        return notUsable("The graphics card takes no picture", status);
    return onCard;
}

} // namespace nimbrale::ffmpeg
