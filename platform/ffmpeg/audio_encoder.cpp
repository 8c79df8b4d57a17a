#include "platform/ffmpeg/audio_encoder.h"

#include <algorithm>
#include <cmath>
#include <new>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace nimbrale::ffmpeg {

namespace {

constexpr std::int64_t samplesPerFrame = 1024;

/// The encoder refuses what is no number, and would clip the rest in its own way.
float samplePlayable(float sample)
{
    return std::isfinite(sample) ? std::clamp(sample, -1.0F, 1.0F) : 0.0F;
}

} // namespace

AudioEncoder::AudioEncoder(CodecContextHandle context, int channels)
    : context_(std::move(context)), channels_(channels), next_(samplesPerFrame)
{}

Result<std::unique_ptr<AudioEncoder>> AudioEncoder::create(const MovieAudio& audio)
{
    const AVCodec* const codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    if (!codec)
        return fail(ErrorCode::unsupported, "This system has no encoder for sound.");
    CodecContextHandle context(avcodec_alloc_context3(codec));
    if (!context)
        throw std::bad_alloc();
    context->sample_rate = audio.sampleRate;
    context->sample_fmt = AV_SAMPLE_FMT_FLTP;
    context->bit_rate = audio.bitRate;
    context->time_base = {1, audio.sampleRate};
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    context->log_level_offset = AV_LOG_TRACE;
    av_channel_layout_default(&context->ch_layout, audio.channels);
    if (const int status = avcodec_open2(context.get(), codec, nullptr); status != 0)
        return fail(ErrorCode::permanent, "The encoder for the sound didn't start: " + avErrorText(status) + ".");
    return std::unique_ptr<AudioEncoder>(new AudioEncoder(std::move(context), audio.channels));
}

void AudioEncoder::append(const AudioBuffer& audio, std::int64_t position)
{
    const auto length = static_cast<std::int64_t>(audio.frameCount());
    const std::int64_t begin = std::max(position, end_);
    if (begin >= position + length)
        return;
    end_ = position + length;
    pieces_.push_back({begin, end_ - begin, audio, begin - position});
}

void AudioEncoder::endAt(std::int64_t position)
{
    isEnding_ = true;
    // A track without a packet is none.
    end_ = std::max({position, next_, samplesPerFrame + 1});
    while (!pieces_.empty() && pieces_.back().position >= end_)
        pieces_.pop_back();
    if (!pieces_.empty())
        pieces_.back().length = std::min(pieces_.back().length, end_ - pieces_.back().position);
}

bool AudioEncoder::hasWork() const
{
    return isEnding_ ? !isFlushed_ : next_ + samplesPerFrame <= end_;
}

void AudioEncoder::copyPiece(const Piece& piece, AVFrame& frame) const
{
    const std::int64_t begin = std::max(piece.position, next_);
    const std::int64_t end = std::min(piece.position + piece.length, next_ + frame.nb_samples);
    for (int channel = 0; channel < channels_; ++channel) {
        auto* const samples = reinterpret_cast<float*>(frame.extended_data[channel]);
        for (std::int64_t position = begin; position < end; ++position) {
            const auto source = static_cast<std::size_t>(piece.offset + position - piece.position);
            samples[position - next_] = samplePlayable(piece.audio.sample(source, channel));
        }
    }
}

FrameHandle AudioEncoder::nextFrame()
{
    FrameHandle frame = newFrame();
    frame->format = context_->sample_fmt;
    frame->sample_rate = context_->sample_rate;
    frame->nb_samples = static_cast<int>(std::min(samplesPerFrame, end_ - next_));
    frame->pts = next_;
    if (av_channel_layout_copy(&frame->ch_layout, &context_->ch_layout) != 0 ||
        av_frame_get_buffer(frame.get(), 0) != 0)
        throw std::bad_alloc();
    for (int channel = 0; channel < channels_; ++channel)
        std::fill_n(reinterpret_cast<float*>(frame->extended_data[channel]), frame->nb_samples, 0.0F);
    for (const Piece& piece : pieces_) {
        if (piece.position >= next_ + frame->nb_samples)
            break;
        copyPiece(piece, *frame);
    }
    next_ += frame->nb_samples;
    while (!pieces_.empty() && pieces_.front().position + pieces_.front().length <= next_)
        pieces_.pop_front();
    return frame;
}

int AudioEncoder::receive(std::vector<PacketHandle>& packets)
{
    while (true) {
        PacketHandle packet = newPacket();
        const int status = avcodec_receive_packet(context_.get(), packet.get());
        if (status == AVERROR(EAGAIN) || status == AVERROR_EOF)
            return 0;
        if (status != 0)
            return status;
        packets.push_back(std::move(packet));
    }
}

Result<std::vector<PacketHandle>> AudioEncoder::encode(int mostFrames)
{
    std::vector<PacketHandle> packets;
    for (int frame = 0; frame < mostFrames && hasWork(); ++frame) {
        const bool isLast = next_ >= end_;
        int status = avcodec_send_frame(context_.get(), isLast ? nullptr : nextFrame().get());
        isFlushed_ = isLast;
        if (status == 0)
            status = receive(packets);
        if (status != 0)
            return fail(ErrorCode::permanent, "The sound couldn't be encoded: " + avErrorText(status) + ".");
    }
    return packets;
}

} // namespace nimbrale::ffmpeg
