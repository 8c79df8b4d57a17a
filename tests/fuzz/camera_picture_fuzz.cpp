// Any bytes as what a camera writes, in any format and size, or a real JPEG with any bytes of it changed and its end
// cut off: an opaque picture of the right size comes of them or none, and a whole JPEG after them is still a picture.

#include "platform/camera_pictures/camera_picture.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace {

using namespace nimbrale;
using Bytes = std::vector<std::uint8_t>;

constexpr int jpegWidth = 48;
constexpr int jpegHeight = 32;

void require(bool holds)
{
    if (!holds)
        std::abort();
}

Bytes realJpeg()
{
    const AVCodec* const codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    AVCodecContext* context = avcodec_alloc_context3(codec);
    AVFrame* frame = av_frame_alloc();
    AVPacket* packet = av_packet_alloc();
    require(context && frame && packet);
    context->pix_fmt = AV_PIX_FMT_YUVJ420P;
    context->width = jpegWidth;
    context->height = jpegHeight;
    context->time_base = {1, 30};
    require(avcodec_open2(context, codec, nullptr) == 0);
    frame->format = context->pix_fmt;
    frame->width = context->width;
    frame->height = context->height;
    require(av_frame_get_buffer(frame, 0) == 0);
    for (int plane = 0; plane < 3; ++plane) {
        const int rows = plane == 0 ? jpegHeight : jpegHeight / 2;
        for (int index = 0; index < frame->linesize[plane] * rows; ++index)
            frame->data[plane][index] = static_cast<std::uint8_t>(index * 37 + plane * 80);
    }
    require(avcodec_send_frame(context, frame) == 0 && avcodec_receive_packet(context, packet) == 0);
    const Bytes bytes(packet->data, packet->data + packet->size);
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&context);
    return bytes;
}

/// Takes what is to be decided off the front of the input.
class Choices {
public:
    Choices(const std::uint8_t* data, std::size_t size) : left_(data, size) {}

    [[nodiscard]] int byte()
    {
        if (left_.empty())
            return 0;
        const int value = left_.front();
        left_ = left_.subspan(1);
        return value;
    }
    [[nodiscard]] int word()
    {
        const int high = byte();
        return high << 8 | byte();
    }
    [[nodiscard]] std::span<const std::uint8_t> rest() const { return left_; }

private:
    std::span<const std::uint8_t> left_;
};

/// Two bytes say where, one what is put there. The last two bytes cut it off.
Bytes changed(Bytes jpeg, Choices choices)
{
    while (choices.rest().size() >= 3) {
        const auto place = static_cast<std::size_t>(choices.word()) % jpeg.size();
        jpeg[place] = static_cast<std::uint8_t>(choices.byte());
    }
    if (choices.rest().size() == 2)
        jpeg.resize(static_cast<std::size_t>(choices.word()) % jpeg.size());
    return jpeg;
}

/// Sizes that few bytes are enough for, and some that no camera has.
int sideFrom(Choices& choices)
{
    const int value = choices.byte();
    if (value < 0xf0)
        return value % 40;
    constexpr std::array odd{-1, largestPictureSide, largestPictureSide + 1, 0x7fffffff};
    return odd.at(static_cast<std::size_t>(value) % odd.size());
}

/// Each plane is memory of its own, so that whatever is read beyond its end is noticed.
std::vector<Bytes> planesFrom(Choices& choices, std::size_t count)
{
    std::vector<std::size_t> ends;
    for (std::size_t plane = 1; plane < count; ++plane)
        ends.push_back(static_cast<std::size_t>(choices.word()));
    std::vector<Bytes> planes;
    std::span<const std::uint8_t> left = choices.rest();
    for (const std::size_t end : ends) {
        const std::size_t size = std::min(end, left.size());
        planes.emplace_back(left.begin(), left.begin() + static_cast<std::ptrdiff_t>(size));
        left = left.subspan(size);
    }
    planes.emplace_back(left.begin(), left.end());
    return planes;
}

void requirePicture(const BufferSurface* picture, int width, int height)
{
    if (!picture)
        return;
    require(picture->alpha() == SurfaceAlpha::opaque && picture->width() == width && picture->height() == height);
}

/// Rows as the format has them, and some that no picture has.
int strideFrom(Choices& choices, int width)
{
    const int value = choices.byte();
    if (value < 0x40)
        return 0;
    if (value < 0xc0)
        return width * (1 + value % 4) + value % 8;
    constexpr std::array odd{-1, 1, -0x7fffffff - 1, 0x7fffffff};
    return odd.at(static_cast<std::size_t>(value) % odd.size());
}

void makeRaw(PictureMaker& maker, PictureEncoding encoding, Choices choices)
{
    CameraFormat format{encoding, sideFrom(choices), sideFrom(choices), static_cast<ColorCoding>(choices.byte() % 4)};
    const auto count = static_cast<std::size_t>(choices.byte() % 4);
    std::vector<int> strides;
    for (std::size_t plane = 0; plane < count; ++plane)
        strides.push_back(strideFrom(choices, format.width > 0 && format.width < 40 ? format.width : 1));
    std::vector<Bytes> bytes;
    if (count > 0)
        bytes = planesFrom(choices, count);
    std::vector<CameraPlane> planes;
    for (std::size_t plane = 0; plane < count; ++plane)
        planes.push_back({bytes[plane], strides[plane]});
    requirePicture(maker.make(format, planes).get(), format.width, format.height);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Bytes jpeg = realJpeg();
    // One for all inputs, as for all of a camera's pictures: none may spoil the next.
    static PictureMaker maker;
    Choices choices(data, size);
    const int kind = choices.byte() % 8;
    const CameraFormat jpegFormat{PictureEncoding::motionJpeg, jpegWidth, jpegHeight};
    if (kind < 5) {
        makeRaw(maker, static_cast<PictureEncoding>(kind), choices);
        return 0;
    }
    const Bytes input = kind == 5 ? Bytes(choices.rest().begin(), choices.rest().end()) : changed(jpeg, choices);
    const auto picture = maker.make(jpegFormat, std::array{CameraPlane{input}});
    if (picture) {
        requirePicture(picture.get(), picture->width(), picture->height());
        require(std::max(picture->width(), picture->height()) <= largestPictureSide);
    }
    const auto whole = maker.make(jpegFormat, std::array{CameraPlane{jpeg}});
    require(whole != nullptr);
    requirePicture(whole.get(), jpegWidth, jpegHeight);
    return 0;
}
