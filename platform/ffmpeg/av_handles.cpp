#include "platform/ffmpeg/av_handles.h"

#include <array>
#include <new>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace nimbrale::ffmpeg {

void ReleaseAv::operator()(AVBufferRef* buffer) const
{
    av_buffer_unref(&buffer);
}

void ReleaseAv::operator()(AVCodecContext* context) const
{
    avcodec_free_context(&context);
}

void ReleaseAv::operator()(AVCodecParameters* parameters) const
{
    avcodec_parameters_free(&parameters);
}

void ReleaseAv::operator()(AVFormatContext* context) const
{
    avformat_free_context(context);
}

void ReleaseAv::operator()(AVFrame* frame) const
{
    av_frame_free(&frame);
}

void ReleaseAv::operator()(AVPacket* packet) const
{
    av_packet_free(&packet);
}

FrameHandle newFrame()
{
    FrameHandle frame(av_frame_alloc());
    if (!frame)
        throw std::bad_alloc();
    return frame;
}

FrameHandle newPicture(int format, int width, int height)
{
    FrameHandle picture = newFrame();
    picture->format = format;
    picture->width = width;
    picture->height = height;
    if (av_frame_get_buffer(picture.get(), 0) != 0)
        throw std::bad_alloc();
    return picture;
}

PacketHandle newPacket()
{
    PacketHandle packet(av_packet_alloc());
    if (!packet)
        throw std::bad_alloc();
    return packet;
}

std::string avErrorText(int code)
{
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(code, text.data(), text.size());
    return text.data();
}

} // namespace nimbrale::ffmpeg
