#include "platform/ffmpeg/piece_muxer.h"

#include <new>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

namespace nimbrale::ffmpeg {

namespace {

tl::unexpected<Error> notMade(int status)
{
    return fail(ErrorCode::permanent, "The movie's pieces couldn't be made: " + avErrorText(status) + ".");
}

/// The muxer writes into memory: a file gets whole pieces, or nothing of them.
void openMemory(AVFormatContext& context)
{
    if (avio_open_dyn_buf(&context.pb) != 0)
        throw std::bad_alloc();
}

} // namespace

PieceMuxer::PieceMuxer(FormatContextHandle context) : context_(std::move(context))
{
    openMemory(*context_);
}

PieceMuxer::~PieceMuxer()
{
    std::uint8_t* bytes = nullptr;
    avio_close_dyn_buf(context_->pb, &bytes);
    av_free(bytes);
}

Result<std::unique_ptr<PieceMuxer>> PieceMuxer::create(const AVCodecContext& video, const AVCodecContext* audio)
{
    AVFormatContext* context = nullptr;
    if (const int status = avformat_alloc_output_context2(&context, nullptr, "mov", nullptr); status < 0)
        return notMade(status);
    std::unique_ptr<PieceMuxer> muxer(new PieceMuxer(FormatContextHandle(context)));
    if (!muxer->addStream(Track::video, video) || (audio && !muxer->addStream(Track::audio, *audio)))
        return notMade(AVERROR(ENOMEM));
    return muxer;
}

bool PieceMuxer::addStream(Track track, const AVCodecContext& encoder)
{
    AVStream* const stream = avformat_new_stream(context_.get(), nullptr);
    if (!stream || avcodec_parameters_from_context(stream->codecpar, &encoder) != 0)
        return false;
    // The encoder's start-up delay is no part of the track: its first packet has the time 0.
    stream->codecpar->initial_padding = 0;
    stream->time_base = encoder.time_base;
    stream->avg_frame_rate = encoder.framerate;
    (track == Track::video ? video_ : audio_) = {stream->index, encoder.time_base.den};
    return true;
}

Result<PieceMuxer::Bytes> PieceMuxer::header()
{
    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", "+empty_moov+default_base_moof+frag_custom+skip_trailer", 0);
    av_dict_set_int(&options, "video_track_timescale", video_.ticksPerSecond, 0);
    const int status = avformat_write_header(context_.get(), &options);
    av_dict_free(&options);
    if (status < 0)
        return notMade(status);
    return takeBytes();
}

Result<void> PieceMuxer::add(Track track, PacketHandle packet)
{
    const Stream& stream = track == Track::video ? video_ : audio_;
    packet->stream_index = stream.index;
    av_packet_rescale_ts(packet.get(), {1, stream.ticksPerSecond}, context_->streams[stream.index]->time_base);
    if (const int status = av_write_frame(context_.get(), packet.get()); status < 0)
        return notMade(status);
    return {};
}

Result<PieceMuxer::Bytes> PieceMuxer::endPiece()
{
    if (const int status = av_write_frame(context_.get(), nullptr); status < 0)
        return notMade(status);
    return takeBytes();
}

PieceMuxer::Bytes PieceMuxer::takeBytes()
{
    std::uint8_t* bytes = nullptr;
    const int size = avio_close_dyn_buf(context_->pb, &bytes);
    Bytes taken(bytes, bytes + size);
    av_free(bytes);
    openMemory(*context_);
    return taken;
}

} // namespace nimbrale::ffmpeg
