#include "platform/camera_pictures/motion_jpeg.h"

#include "platform/camera_pictures/camera_format.h"

#include <algorithm>
#include <cstdint>
#include <limits>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/buffer.h>
}

namespace nimbrale {

namespace {

constexpr std::int64_t mostPixels = std::int64_t{largestPictureSide} * largestPictureSide / 2;

bool isPossibleSize(int width, int height)
{
    return width > 0 && height > 0 && std::max(width, height) <= largestPictureSide &&
           std::int64_t{width} * height <= mostPixels;
}

/// False only where a header says so. The library tells of such a size in a line of its own, which no level of the
/// decoder's keeps back: a broken camera would fill the log.
bool mayHavePossibleSize(std::span<const std::uint8_t> jpeg)
{
    constexpr std::size_t headerLength = 9;
    const auto word = [jpeg](std::size_t place) { return jpeg[place] << 8 | jpeg[place + 1]; };
    for (std::size_t place = 0; place + headerLength <= jpeg.size();) {
        const int marker = jpeg[place + 1];
        if (jpeg[place] != 0xff || marker < 0xc0 || marker == 0xff) {
            ++place; // What is between segments is passed over, as the library does.
            continue;
        }
        const bool isTable = marker == 0xc4 || marker == 0xc8 || marker == 0xcc;
        if (marker <= 0xcf && !isTable)
            return isPossibleSize(word(place + 7), word(place + 5));
        if (marker == 0xda)
            break;
        const bool isAlone = marker >= 0xd0 && marker <= 0xd9;
        place += 2 + (isAlone ? 0 : static_cast<std::size_t>(word(place + 2)));
    }
    return true;
}

} // namespace

void MotionJpegDecoder::Release::operator()(AVCodecContext* context) const
{
    avcodec_free_context(&context);
}

void MotionJpegDecoder::Release::operator()(AVFrame* frame) const
{
    av_frame_free(&frame);
}

void MotionJpegDecoder::Release::operator()(AVPacket* packet) const
{
    av_packet_free(&packet);
}

void MotionJpegDecoder::Release::operator()(AVBufferPool* pool) const
{
    av_buffer_pool_uninit(&pool);
}

MotionJpegDecoder::MotionJpegDecoder() = default;
MotionJpegDecoder::~MotionJpegDecoder() = default;

bool MotionJpegDecoder::isReady()
{
    if (context_)
        return true;
    const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_MJPEG);
    if (!codec)
        return false;
    context_.reset(avcodec_alloc_context3(codec));
    frame_.reset(av_frame_alloc());
    packet_.reset(av_packet_alloc());
    if (!context_ || !frame_ || !packet_) {
        context_.reset();
        return false;
    }
    context_->thread_count = 1; // More would hold pictures back.
    // Half a picture is none, and a header may claim any size.
    context_->err_recognition = AV_EF_EXPLODE | AV_EF_CRCCHECK | AV_EF_BUFFER | AV_EF_BITSTREAM;
    context_->max_pixels = mostPixels;
    // A broken camera would fill the log, picture by picture.
    context_->log_level_offset = AV_LOG_TRACE;
    if (avcodec_open2(context_.get(), codec, nullptr) != 0)
        context_.reset();
    return context_ != nullptr;
}

/// In memory that the decoder has let go of, where there is some: it keeps a picture until the next one is there.
bool MotionJpegDecoder::takeBytes(std::span<const std::uint8_t> jpeg)
{
    // The decoder reads beyond the end, where it wants zeros.
    const std::size_t needed = jpeg.size() + AV_INPUT_BUFFER_PADDING_SIZE;
    if (!memory_ || pieceSize_ < needed) {
        // A camera's pictures differ in their lengths; the next ones are to have room, too.
        pieceSize_ = needed + jpeg.size() / 2;
        memory_.reset(av_buffer_pool_init(pieceSize_, nullptr));
    }
    av_packet_unref(packet_.get());
    packet_->buf = memory_ ? av_buffer_pool_get(memory_.get()) : nullptr;
    if (!packet_->buf)
        return false;
    packet_->data = packet_->buf->data;
    packet_->size = static_cast<int>(jpeg.size());
    std::ranges::copy(jpeg, packet_->data);
    std::fill_n(packet_->data + jpeg.size(), AV_INPUT_BUFFER_PADDING_SIZE, std::uint8_t{0});
    return true;
}

const AVFrame* MotionJpegDecoder::decode(std::span<const std::uint8_t> jpeg)
{
    if (jpeg.empty() || jpeg.size() > std::numeric_limits<int>::max() / 2 || !mayHavePossibleSize(jpeg) || !isReady())
        return nullptr;
    if (!takeBytes(jpeg))
        return nullptr;
    av_frame_unref(frame_.get());
    const bool isWhole = avcodec_send_packet(context_.get(), packet_.get()) == 0 &&
                         avcodec_receive_frame(context_.get(), frame_.get()) == 0 && frame_->decode_error_flags == 0 &&
                         (frame_->flags & AV_FRAME_FLAG_CORRUPT) == 0;
    if (isWhole)
        return frame_.get();
    // What is left of the broken picture must not become part of the next one.
    avcodec_flush_buffers(context_.get());
    return nullptr;
}

} // namespace nimbrale
