#pragma once

#include "platform/ffmpeg/av_handles.h"

#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace nimbrale::ffmpeg {

struct PlayedPicture {
    std::chrono::nanoseconds time{0};
    /// The same, in 1/90000 s.
    std::int64_t tick = 0;
    bool isKey = false;
    int width = 0;
    std::vector<std::uint8_t> luma;
    std::vector<std::uint8_t> blueChroma;
    std::vector<std::uint8_t> redChroma;

    [[nodiscard]] int lumaAt(int x, int y) const { return luma.at(index(x, y, width)); }
    [[nodiscard]] int blueChromaAt(int x, int y) const { return blueChroma.at(index(x / 2, y / 2, width / 2)); }
    [[nodiscard]] int redChromaAt(int x, int y) const { return redChroma.at(index(x / 2, y / 2, width / 2)); }

private:
    static std::size_t index(int x, int y, int columns)
    {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(columns) + static_cast<std::size_t>(x);
    }
};

/// When a track begins and how long it is, in 1/90000 s.
struct PlayedTrack {
    std::int64_t begin = 0;
    std::int64_t duration = 0;
};

/// What a player makes of a movie. The constructor reads all of it and throws std::runtime_error where anything is
/// broken.
class PlayedMovie {
public:
    explicit PlayedMovie(const std::filesystem::path& file)
    {
        open(file);
        std::vector<CodecContextHandle> decoders;
        for (unsigned number = 0; number < context_->nb_streams; ++number)
            decoders.push_back(openDecoder(*context_->streams[number]));
        const PacketHandle packet = newPacket();
        int status = 0;
        while ((status = av_read_frame(context_.get(), packet.get())) == 0) {
            const auto stream = static_cast<std::size_t>(packet->stream_index);
            require((packet->flags & AV_PKT_FLAG_CORRUPT) == 0, "a packet is whole");
            packetBytes_.at(stream == 0 ? 0 : 1) += packet->size;
            if (stream == 0)
                lastPictureDuration_ = inTicks(packet->duration, *context_->streams[0]);
            decode(*decoders.at(stream), packet.get(), *context_->streams[stream]);
            av_packet_unref(packet.get());
        }
        require(status == AVERROR_EOF, "the file is read to its end");
        for (std::size_t stream = 0; stream < decoders.size(); ++stream)
            decode(*decoders[stream], nullptr, *context_->streams[stream]);
    }

    [[nodiscard]] const AVCodecParameters& video() const { return *context_->streams[0]->codecpar; }
    /// Null without a track of sound.
    [[nodiscard]] const AVCodecParameters* audio() const
    {
        return context_->nb_streams > 1 ? context_->streams[1]->codecpar : nullptr;
    }
    [[nodiscard]] PlayedTrack videoTrack() const { return trackOf(0); }
    /// Only with sound.
    [[nodiscard]] PlayedTrack soundTrack() const { return trackOf(1); }
    /// How long the last picture is shown, in 1/90000 s.
    [[nodiscard]] std::int64_t lastPictureDuration() const { return lastPictureDuration_; }
    [[nodiscard]] std::chrono::duration<double> videoDuration() const { return durationOf(0); }
    [[nodiscard]] std::chrono::duration<double> audioDuration() const { return durationOf(1); }
    [[nodiscard]] std::chrono::duration<double> duration() const
    {
        return std::chrono::duration<double>(static_cast<double>(context_->duration) / AV_TIME_BASE);
    }
    [[nodiscard]] std::int64_t videoBytes() const { return packetBytes_[0]; }
    [[nodiscard]] const std::vector<PlayedPicture>& pictures() const { return pictures_; }
    [[nodiscard]] std::vector<std::chrono::nanoseconds> times() const
    {
        std::vector<std::chrono::nanoseconds> all;
        for (const PlayedPicture& picture : pictures_)
            all.push_back(picture.time);
        return all;
    }
    /// Of the left channel, from the sound's beginning.
    [[nodiscard]] const std::vector<float>& left() const { return left_; }
    /// Empty where the sound has one channel.
    [[nodiscard]] const std::vector<float>& right() const { return right_; }
    /// The loudest sample of the left channel, counted from the movie's start; -1 where nothing is heard.
    [[nodiscard]] std::int64_t loudestSample() const
    {
        std::int64_t loudest = -1;
        float loudness = 0.1F;
        for (std::size_t sample = 0; sample < left_.size(); ++sample) {
            if (std::abs(left_[sample]) > loudness) {
                loudness = std::abs(left_[sample]);
                loudest = soundBegin_.value_or(0) + static_cast<std::int64_t>(sample);
            }
        }
        return loudest;
    }

    /// The time of the picture from which a player goes on that was sent to `time`.
    [[nodiscard]] std::chrono::nanoseconds seekTo(std::chrono::nanoseconds time)
    {
        const AVStream& stream = *context_->streams[0];
        const std::int64_t target = av_rescale_q(time.count(), {1, std::nano::den}, stream.time_base);
        require(av_seek_frame(context_.get(), 0, target, AVSEEK_FLAG_BACKWARD) >= 0, "the movie can be sought in");
        const PacketHandle packet = newPacket();
        while (av_read_frame(context_.get(), packet.get()) == 0) {
            if (packet->stream_index == 0)
                return std::chrono::nanoseconds(av_rescale_q(packet->pts, stream.time_base, {1, std::nano::den}));
            av_packet_unref(packet.get());
        }
        throw std::runtime_error("no picture after seeking");
    }

private:
    static constexpr int ticksPerSecond = 90000;

    struct CloseInput {
        void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
    };

    static void require(bool condition, const std::string& what)
    {
        if (!condition)
            throw std::runtime_error("not true: " + what);
    }

    void open(const std::filesystem::path& file)
    {
        AVFormatContext* context = nullptr;
        require(avformat_open_input(&context, file.c_str(), nullptr, nullptr) == 0, file.string() + " is a movie");
        context_.reset(context);
        require(avformat_find_stream_info(context, nullptr) >= 0, "the movie tells of its streams");
        require(context->nb_streams > 0 && video().codec_type == AVMEDIA_TYPE_VIDEO, "the first track is the picture");
        require(context->nb_streams < 2 || audio()->codec_type == AVMEDIA_TYPE_AUDIO, "the second track is the sound");
    }

    static CodecContextHandle openDecoder(const AVStream& stream)
    {
        CodecContextHandle decoder(avcodec_alloc_context3(avcodec_find_decoder(stream.codecpar->codec_id)));
        require(avcodec_parameters_to_context(decoder.get(), stream.codecpar) == 0, "the track can be decoded");
        decoder->pkt_timebase = stream.time_base;
        decoder->err_recognition = AV_EF_EXPLODE | AV_EF_CRCCHECK | AV_EF_BITSTREAM;
        decoder->thread_count = 1;
        require(avcodec_open2(decoder.get(), decoder->codec, nullptr) == 0, "the decoder opens");
        return decoder;
    }

    void decode(AVCodecContext& decoder, const AVPacket* packet, const AVStream& stream)
    {
        require(avcodec_send_packet(&decoder, packet) == 0, "a packet can be decoded");
        const FrameHandle frame = newFrame();
        int status = 0;
        while ((status = avcodec_receive_frame(&decoder, frame.get())) == 0) {
            if (decoder.codec_type == AVMEDIA_TYPE_VIDEO)
                keepPicture(*frame, stream.time_base);
            else
                keepSound(*frame, stream.time_base);
        }
        require(status == AVERROR(EAGAIN) || status == AVERROR_EOF, "a frame is whole");
    }

    static std::vector<std::uint8_t> planeOf(const AVFrame& frame, int plane, int width, int height)
    {
        std::vector<std::uint8_t> samples;
        for (int y = 0; y < height; ++y) {
            const std::uint8_t* const row = frame.data[plane] + std::ptrdiff_t{y} * frame.linesize[plane];
            samples.insert(samples.end(), row, row + width);
        }
        return samples;
    }

    void keepPicture(const AVFrame& frame, AVRational timeBase)
    {
        require(frame.format == AV_PIX_FMT_YUV420P, "pictures are 4:2:0");
        pictures_.push_back({.time = std::chrono::nanoseconds(av_rescale_q(frame.pts, timeBase, {1, std::nano::den})),
                             .tick = av_rescale_q(frame.pts, timeBase, {1, ticksPerSecond}),
                             .isKey = frame.key_frame != 0,
                             .width = frame.width,
                             .luma = planeOf(frame, 0, frame.width, frame.height),
                             .blueChroma = planeOf(frame, 1, frame.width / 2, frame.height / 2),
                             .redChroma = planeOf(frame, 2, frame.width / 2, frame.height / 2)});
    }

    void keepSound(const AVFrame& frame, AVRational timeBase)
    {
        const int channels = frame.ch_layout.nb_channels;
        require(frame.format == AV_SAMPLE_FMT_FLTP && (channels == 1 || channels == 2), "the sound is mono or stereo");
        const std::int64_t position = av_rescale_q(frame.pts, timeBase, {1, frame.sample_rate});
        if (!soundBegin_)
            soundBegin_ = position;
        require(position == *soundBegin_ + static_cast<std::int64_t>(left_.size()), "the sound has no gap");
        for (int channel = 0; channel < channels; ++channel) {
            const auto* const samples = reinterpret_cast<const float*>(frame.extended_data[channel]);
            std::vector<float>& kept = channel == 0 ? left_ : right_;
            kept.insert(kept.end(), samples, samples + frame.nb_samples);
        }
    }

    static std::int64_t inTicks(std::int64_t time, const AVStream& stream)
    {
        return av_rescale_q(time, stream.time_base, {1, ticksPerSecond});
    }
    [[nodiscard]] PlayedTrack trackOf(unsigned number) const
    {
        const AVStream& stream = *context_->streams[number];
        return {inTicks(stream.start_time, stream), inTicks(stream.duration, stream)};
    }
    [[nodiscard]] std::chrono::duration<double> durationOf(unsigned number) const
    {
        const AVStream& stream = *context_->streams[number];
        return std::chrono::duration<double>(static_cast<double>(stream.duration) * av_q2d(stream.time_base));
    }

    std::unique_ptr<AVFormatContext, CloseInput> context_;
    std::vector<PlayedPicture> pictures_;
    std::int64_t lastPictureDuration_ = 0;
    std::optional<std::int64_t> soundBegin_;
    std::vector<float> left_;
    std::vector<float> right_;
    std::array<std::int64_t, 2> packetBytes_{};
};

} // namespace nimbrale::ffmpeg
