#include "platform/v4l2/camera_input.h"

#include "platform/log.h"
#include "platform/v4l2/left_buffers.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

extern "C" {
#include <libavdevice/avdevice.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/log.h>
}

namespace nimbrale::v4l2 {

/// A format to ask for. The library takes another encoding, and the driver another size and rate, where the camera does
/// not have these.
struct CameraInput::Attempt {
    const char* encoding = nullptr;
    const char* size = nullptr;
    int leastWidth = 1;
    double leastRate = 0;
};

namespace {

constexpr const char* wantedRate = "30";
constexpr double fluentRate = 24;
constexpr std::chrono::duration<double> usualInterval{1 / 30.0};

double rateOf(const AVStream& stream)
{
    return stream.avg_frame_rate.den > 0 ? av_q2d(stream.avg_frame_rate) : 0;
}

std::optional<PictureEncoding> encodingOf(const AVCodecParameters& parameters)
{
    if (parameters.codec_id == AV_CODEC_ID_MJPEG)
        return PictureEncoding::motionJpeg;
    if (parameters.codec_id != AV_CODEC_ID_RAWVIDEO)
        return std::nullopt;
    switch (parameters.format) {
    case AV_PIX_FMT_YUYV422:
        return PictureEncoding::yuy2;
    case AV_PIX_FMT_UYVY422:
        return PictureEncoding::uyvy;
    case AV_PIX_FMT_NV12:
        return PictureEncoding::nv12;
    case AV_PIX_FMT_YUV420P:
        return PictureEncoding::i420;
    case AV_PIX_FMT_BGR0:
        return PictureEncoding::bgrx;
    default:
        return std::nullopt;
    }
}

std::optional<CameraFormat> formatOf(const AVFormatContext& context)
{
    if (context.nb_streams == 0)
        return std::nullopt;
    const AVCodecParameters& parameters = *context.streams[0]->codecpar;
    const std::optional<PictureEncoding> encoding = encodingOf(parameters);
    if (!encoding || parameters.width > largestPictureSide || parameters.height > largestPictureSide)
        return std::nullopt;
    // The library does not tell of colors; drivers leave them as those of the television.
    return CameraFormat{*encoding, parameters.width, parameters.height, ColorCoding::bt601Limited};
}

/// Null where the library was built without it.
const AVInputFormat* cameras()
{
    static const AVInputFormat* const found = [] {
        avdevice_register_all();
        return av_find_input_format("v4l2");
    }();
    return found;
}

/// Of some calls to the driver the library tells without saying whose they are.
bool isOfCamera(void* sender, std::string_view format)
{
    if (!sender)
        return format.starts_with("ioctl(VIDIOC_");
    const AVClass* const kind = *static_cast<const AVClass**>(sender);
    return kind && kind->item_name && std::string_view(kind->item_name(sender)) == cameras()->name;
}

/// What goes wrong with a camera is told in words of our own, once; the library's words for it are for whoever debugs.
void logQuietly(void* sender, int level, const char* format, va_list arguments)
{
    if (!isOfCamera(sender, format)) {
        av_log_default_callback(sender, level, format, arguments);
        return;
    }
    std::array<char, 256> text{};
    static_cast<void>(std::vsnprintf(text.data(), text.size(), format, arguments));
    qCDebug(webcamLog, "The camera's driver: %s", text.data());
}

} // namespace

void CameraInput::quietLibrary()
{
    if (cameras())
        av_log_set_callback(logQuietly);
}

void CameraInput::Release::operator()(AVFormatContext* context) const
{
    avformat_close_input(&context);
}

void CameraInput::Release::operator()(AVPacket* packet) const
{
    av_packet_free(&packet);
}

CameraInput::CameraInput(Context context, CameraFormat format)
    : context_(std::move(context)), format_(format), newest_(av_packet_alloc()), next_(av_packet_alloc())
{
    const double rate = rateOf(*context_->streams[0]);
    interval_ = rate > 0 ? std::chrono::duration<double>(1 / rate) : usualInterval;
}

CameraInput::~CameraInput() = default;

tl::expected<CameraInput::Context, int> CameraInput::openAs(const std::filesystem::path& file, const Attempt& attempt)
{
    if (!cameras())
        return tl::make_unexpected(ENOSYS);
    AVFormatContext* context = avformat_alloc_context();
    if (!context)
        return tl::make_unexpected(ENOMEM);
    context->flags |= AVFMT_FLAG_NONBLOCK;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "input_format", attempt.encoding, 0);
    av_dict_set(&options, "video_size", attempt.size, 0);
    av_dict_set(&options, "framerate", wantedRate, 0);
    // One at a time, so that only buffers of this attempt can have come since it began.
    static std::mutex onlyOne;
    const std::lock_guard lock(onlyOne);
    const LeftBuffers left(file);
    const int result = avformat_open_input(&context, file.c_str(), cameras(), &options);
    av_dict_free(&options);
    if (result < 0) {
        left.giveBack();
        return tl::make_unexpected(AVUNERROR(result));
    }
    return Context(context);
}

tl::expected<std::unique_ptr<CameraInput>, int> CameraInput::open(const std::filesystem::path& file,
                                                                  const std::function<bool()>& isUnwanted)
{
    // Most cameras give 1280 × 720 fluently as JPEG only; a small fluent picture is better than a slow one.
    constexpr std::array attempts{
        Attempt{"yuyv422", "1280x720", 1280, fluentRate},
        Attempt{"mjpeg", "1280x720", 1280, fluentRate},
        Attempt{"yuyv422", "640x480", 640, fluentRate},
        Attempt{"mjpeg", "640x480", 640, fluentRate},
        Attempt{"yuyv422", "1280x720", 1, 0},
        Attempt{"mjpeg", "1280x720", 1, 0},
    };
    int error = ENOTSUP;
    for (const Attempt& attempt : attempts) {
        if (isUnwanted())
            return tl::make_unexpected(ECANCELED);
        auto context = openAs(file, attempt);
        // EINVAL stands for a format that the camera does not have.
        if (!context && context.error() != EINVAL)
            return tl::make_unexpected(context.error());
        const std::optional<CameraFormat> format = context ? formatOf(**context) : std::nullopt;
        if (!format)
            continue;
        const double rate = rateOf(*(*context)->streams[0]);
        // A camera that does not tell its rate is taken to be fluent.
        if (format->width >= attempt.leastWidth && (rate <= 0 || rate >= attempt.leastRate)) {
            std::unique_ptr<CameraInput> input(new CameraInput(std::move(*context), *format));
            if (input->newest_ && input->next_)
                return input;
            error = ENOMEM;
        }
    }
    return tl::make_unexpected(error);
}

tl::expected<std::span<const std::uint8_t>, int> CameraInput::readNewest()
{
    // More than the driver has; one that always has another must not keep this from ending.
    constexpr int mostPictures = 64;
    av_packet_unref(newest_.get());
    for (int count = 0; count < mostPictures; ++count) {
        const int result = av_read_frame(context_.get(), next_.get());
        if (result == AVERROR(EAGAIN))
            break;
        if (result < 0)
            return tl::make_unexpected(AVUNERROR(result));
        // What is older goes back to the driver at once.
        std::swap(newest_, next_);
        av_packet_unref(next_.get());
    }
    if (newest_->size <= 0)
        return std::span<const std::uint8_t>();
    return std::span<const std::uint8_t>(newest_->data, static_cast<std::size_t>(newest_->size));
}

} // namespace nimbrale::v4l2
