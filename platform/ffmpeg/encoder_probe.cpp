#include "platform/ffmpeg/encoder_probe.h"

#include "platform/ffmpeg/probe_pictures.h"
#include "platform/ffmpeg/video_encoder.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <string_view>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace nimbrale::ffmpeg {

namespace {

constexpr int pictureCount = 24;
/// Key pictures are asked for sooner than any encoder makes one by itself.
constexpr int keyInterval = 10;

tl::unexpected<Error> refused(std::string reason)
{
    return fail(ErrorCode::unsupported, std::move(reason));
}

/// Shows what is encoded as a player does, and compares it with what it should be.
class ProbePlayer {
public:
    explicit ProbePlayer(const MovieVideo& video) : video_(video) {}

    /// With the header that a movie gets of this encoder.
    Result<void> open(const AVCodecContext& encoder)
    {
        if (encoder.extradata_size == 0)
            return refused("It makes no header.");
        decoder_.reset(avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_H264)));
        ParametersHandle parameters(avcodec_parameters_alloc());
        if (!decoder_ || avcodec_parameters_from_context(parameters.get(), &encoder) != 0 ||
            avcodec_parameters_to_context(decoder_.get(), parameters.get()) != 0)
            return refused("Its pictures cannot be decoded here.");
        decoder_->err_recognition = AV_EF_EXPLODE | AV_EF_CRCCHECK | AV_EF_BITSTREAM;
        decoder_->thread_count = 1;
        if (avcodec_open2(decoder_.get(), nullptr, nullptr) != 0)
            return refused("Its header is wrong.");
        return {};
    }
    /// Null at the end.
    Result<void> show(const AVPacket* packet)
    {
        if (avcodec_send_packet(decoder_.get(), packet) != 0)
            return refused("A picture is broken.");
        int status = 0;
        while ((status = avcodec_receive_frame(decoder_.get(), frame_.get())) == 0) {
            if (Result<void> checked = check(*frame_); !checked)
                return checked;
            ++shown_;
        }
        return status == AVERROR(EAGAIN) || status == AVERROR_EOF ? Result<void>() : refused("A picture is broken.");
    }
    [[nodiscard]] int shown() const { return shown_; }

private:
    Result<void> check(const AVFrame& frame) const
    {
        if (frame.width != video_.width || frame.height != video_.height || frame.format != AV_PIX_FMT_YUV420P)
            return refused("A picture has another size or format.");
        if (decoder_->profile != FF_PROFILE_H264_HIGH)
            return refused("It is not the High profile.");
        if (frame.color_primaries != AVCOL_PRI_BT709 || frame.color_trc != AVCOL_TRC_BT709 ||
            frame.colorspace != AVCOL_SPC_BT709 || frame.color_range != AVCOL_RANGE_MPEG)
            return refused("The header tells wrong colors.");
        return looksLike(frame, shown_) ? Result<void>() : refused("A picture does not look as it should.");
    }

    MovieVideo video_;
    CodecContextHandle decoder_;
    FrameHandle frame_ = newFrame();
    int shown_ = 0;
};

/// Uneven, as those of a screen.
std::int64_t tickOf(int picture, const MovieVideo& video)
{
    return std::int64_t{picture} * videoTicksPerSecond / video.expectedFrameRate + picture % 3;
}

Result<void> checkPacket(const AVPacket& packet, std::int64_t tick, int sinceKey, const MovieVideo& video)
{
    if (packet.pts != tick || packet.dts != tick)
        return refused("It changes the pictures' times or order.");
    const bool isKey = (packet.flags & AV_PKT_FLAG_KEY) != 0;
    if (isKey != (sinceKey == 0) && sinceKey < video.maximumKeyFrameInterval)
        return refused("It makes key pictures where none was asked for, or none where one was.");
    return {};
}

template <typename Number>
bool readNumber(std::string_view text, Number& number)
{
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    return read.ec == std::errc() && read.ptr == text.data() + text.size();
}

} // namespace

std::vector<std::string> ProbeQuestion::arguments() const
{
    return {encoder.codec,
            encoder.device,
            encoder.options,
            std::to_string(video.width),
            std::to_string(video.height),
            std::to_string(video.averageBitRate),
            std::to_string(video.expectedFrameRate),
            std::to_string(video.maximumKeyFrameInterval)};
}

std::optional<ProbeQuestion> ProbeQuestion::read(std::span<const char* const> arguments)
{
    if (arguments.size() != 8)
        return std::nullopt;
    ProbeQuestion question;
    question.encoder = {arguments[0], arguments[1], arguments[2]};
    MovieVideo& video = question.video;
    const bool isRead = readNumber(arguments[3], video.width) && readNumber(arguments[4], video.height) &&
                        readNumber(arguments[5], video.averageBitRate) &&
                        readNumber(arguments[6], video.expectedFrameRate) &&
                        readNumber(arguments[7], video.maximumKeyFrameInterval);
    return isRead && video.expectedFrameRate > 0 ? std::optional(question) : std::nullopt;
}

std::string ProbeQuestion::confirmation() const
{
    return encoder.name() + " works for " + std::to_string(video.width) + " x " + std::to_string(video.height);
}

Result<void> probeEncoder(const ProbeQuestion& question)
{
    const MovieVideo& video = question.video;
    const auto encoder = VideoEncoder::createOnHardware(video, question.encoder);
    if (!encoder)
        return tl::make_unexpected(encoder.error());
    ProbePlayer player(video);
    if (Result<void> opened = player.open((*encoder)->context()); !opened)
        return opened;
    for (int number = 0; number < pictureCount; ++number) {
        const std::int64_t tick = tickOf(number, video);
        const int sinceKey = number % keyInterval;
        const FrameHandle picture = probePicture(video.width, video.height, number);
        const Result<PacketHandle> packet =
            (*encoder)->encode(*picture, tick, sinceKey == 0 ? PictureKind::key : PictureKind::any);
        if (!packet)
            return tl::make_unexpected(packet.error());
        if (Result<void> checked = checkPacket(**packet, tick, sinceKey, video); !checked)
            return checked;
        if (Result<void> shown = player.show(packet->get()); !shown)
            return shown;
    }
    if (Result<void> ended = player.show(nullptr); !ended)
        return ended;
    return player.shown() == pictureCount ? Result<void>() : refused("Pictures are missing.");
}

} // namespace nimbrale::ffmpeg
