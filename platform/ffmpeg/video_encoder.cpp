#include "platform/ffmpeg/video_encoder.h"

#include <algorithm>
#include <climits>
#include <new>
#include <thread>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/dict.h>
#include <libavutil/opt.h>
}

namespace nimbrale::ffmpeg {

namespace {

/// Both efforts write the same headers, so that they can follow each other in one movie: the quick preset alone would
/// give up the High profile, and the careful one would announce weighted prediction. No preset may look ahead: the
/// encoder would keep pictures back, of a still screen for many seconds.
constexpr const char* commonParameters = "8x8dct=1:cabac=1:ref=1:weightp=0:bframes=0:scenecut=0:rc-lookahead=0:"
                                         "sync-lookahead=0:mbtree=0";

void setPicture(AVCodecContext& context, const MovieVideo& video)
{
    context.width = video.width;
    context.height = video.height;
    context.pix_fmt = AV_PIX_FMT_YUV420P;
    context.time_base = {1, videoTicksPerSecond};
    context.framerate = {video.expectedFrameRate, 1};
    context.color_primaries = AVCOL_PRI_BT709;
    context.color_trc = AVCOL_TRC_BT709;
    context.colorspace = AVCOL_SPC_BT709;
    context.color_range = AVCOL_RANGE_MPEG;
    context.chroma_sample_location = AVCHROMA_LOC_CENTER;
}

/// A key picture of a screen full of text needs many times the average: the buffer lets it have two seconds' worth.
void setRate(AVCodecContext& context, const MovieVideo& video)
{
    context.bit_rate = video.averageBitRate;
    context.rc_max_rate = video.averageBitRate + video.averageBitRate / 2;
    context.rc_buffer_size = static_cast<int>(std::min<std::int64_t>(2 * video.averageBitRate, INT_MAX));
    context.gop_size = video.maximumKeyFrameInterval;
    context.max_b_frames = 0;
    context.profile = FF_PROFILE_H264_HIGH;
}

bool setOptions(AVCodecContext& context, EncoderEffort effort)
{
    const auto set = [&](const char* name, const char* value) {
        return av_opt_set(context.priv_data, name, value, 0) == 0;
    };
    return set("preset", effort == EncoderEffort::careful ? "veryfast" : "ultrafast") && set("tune", "zerolatency") &&
           set("profile", "high") && set("forced-idr", "1") && set("x264-params", commonParameters);
}

tl::unexpected<Error> notEncoded(int status)
{
    return fail(ErrorCode::permanent, "The picture couldn't be encoded: " + avErrorText(status) + ".");
}

/// With everything set that does not depend on the codec.
Result<CodecContextHandle> newContext(const AVCodec* codec, const MovieVideo& video)
{
    // The encoder would refuse it too, but leak.
    if (video.width < 2 || video.height < 2 || video.width % 2 != 0 || video.height % 2 != 0)
        return fail(ErrorCode::unsupported, "A movie's width and height must be even.");
    if (!codec || codec->id != AV_CODEC_ID_H264)
        return fail(ErrorCode::unsupported, "This system has no encoder for movies of that name.");
    CodecContextHandle context(avcodec_alloc_context3(codec));
    if (!context)
        throw std::bad_alloc();
    setPicture(*context, video);
    setRate(*context, video);
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    // It tells of its settings at every start; what fails is told here.
    context->log_level_offset = AV_LOG_TRACE;
    return context;
}

Result<void> open(AVCodecContext& context, AVDictionary** options)
{
    if (const int status = avcodec_open2(&context, context.codec, options); status != 0)
        return fail(ErrorCode::temporary, "The encoder for the picture didn't start: " + avErrorText(status) + ".");
    return {};
}

/// Fails on an option that the codec does not know, too: without it, it would do something else than was meant.
Result<void> openWith(AVCodecContext& context, const std::string& options)
{
    AVDictionary* parsed = nullptr;
    Result<void> opened;
    if (av_dict_parse_string(&parsed, options.c_str(), "=", ":", 0) != 0)
        opened = fail(ErrorCode::unsupported, "The encoder's options cannot be read.");
    else
        opened = open(context, &parsed);
    if (opened && av_dict_count(parsed) != 0)
        opened = fail(ErrorCode::unsupported, "The encoder lacks an option.");
    av_dict_free(&parsed);
    return opened;
}

} // namespace

VideoEncoder::VideoEncoder(CodecContextHandle context, std::optional<HardwarePictures> hardware)
    : context_(std::move(context)), hardware_(std::move(hardware))
{}

Result<std::unique_ptr<VideoEncoder>> VideoEncoder::create(const MovieVideo& video, EncoderEffort effort)
{
    Result<CodecContextHandle> context = newContext(avcodec_find_encoder_by_name("libx264"), video);
    if (!context)
        return tl::make_unexpected(context.error());
    (*context)->thread_count = encoderThreads(std::thread::hardware_concurrency());
    if (!setOptions(**context, effort))
        return fail(ErrorCode::unsupported, "This system's encoder for movies cannot be used.");
    if (const Result<void> opened = open(**context, nullptr); !opened)
        return tl::make_unexpected(opened.error());
    return std::unique_ptr<VideoEncoder>(new VideoEncoder(*std::move(context), std::nullopt));
}

Result<std::unique_ptr<VideoEncoder>> VideoEncoder::createOnHardware(const MovieVideo& video,
                                                                     const HardwareEncoder& hardware)
{
    Result<CodecContextHandle> context = newContext(avcodec_find_encoder_by_name(hardware.codec.c_str()), video);
    if (!context)
        return tl::make_unexpected(context.error());
    Result<HardwarePictures> pictures = HardwarePictures::create(**context, hardware.device);
    if (!pictures)
        return tl::make_unexpected(pictures.error());
    if (const Result<void> opened = openWith(**context, hardware.options); !opened)
        return tl::make_unexpected(opened.error());
    return std::unique_ptr<VideoEncoder>(new VideoEncoder(*std::move(context), *std::move(pictures)));
}

Result<FrameHandle> VideoEncoder::frameOf(const AVFrame& picture) const
{
    if (hardware_)
        return hardware_->copy(picture);
    FrameHandle frame = newFrame();
    if (const int status = av_frame_ref(frame.get(), &picture); status != 0)
        return notEncoded(status);
    return frame;
}

Result<PacketHandle> VideoEncoder::encode(const AVFrame& picture, std::int64_t tick, PictureKind kind)
{
    Result<FrameHandle> frame = frameOf(picture);
    if (!frame)
        return tl::make_unexpected(frame.error());
    (*frame)->pts = tick;
    (*frame)->pict_type = kind == PictureKind::key ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    if (const int status = avcodec_send_frame(context_.get(), frame->get()); status != 0)
        return notEncoded(status);
    PacketHandle packet = newPacket();
    if (const int status = avcodec_receive_packet(context_.get(), packet.get()); status != 0)
        return notEncoded(status);
    return packet;
}

} // namespace nimbrale::ffmpeg
