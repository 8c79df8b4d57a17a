#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace nimbrale::ffmpeg {

/// What a player makes of a movie. Times are in 1/90000 s.
struct DecodedMovie {
    struct Picture {
        std::int64_t time = 0;
        int brightness = 0;

        bool operator==(const Picture&) const = default;
    };

    bool isReadable = false;
    /// What the demultiplexer or a decoder complained of.
    int errors = 0;
    std::int64_t videoBegin = 0;
    std::int64_t videoDuration = 0;
    std::int64_t soundBegin = 0;
    std::int64_t soundDuration = 0;
    std::vector<Picture> pictures;
    /// How long the last picture is shown.
    std::int64_t lastDuration = 0;
    /// The loudest sample, of 48000 in a second from the movie's beginning; -1 where nothing is heard.
    std::int64_t tick = -1;

    static DecodedMovie decode(const std::filesystem::path& file)
    {
        DecodedMovie movie;
        MovieDecoder decoder(file, movie);
        decoder.run();
        return movie;
    }

private:
    class MovieDecoder {
    public:
        MovieDecoder(const std::filesystem::path& file, DecodedMovie& movie) : movie_(movie)
        {
            movie_.isReadable = avformat_open_input(&input_, file.c_str(), nullptr, nullptr) == 0 &&
                                avformat_find_stream_info(input_, nullptr) >= 0;
        }
        ~MovieDecoder()
        {
            for (AVCodecContext*& decoder : decoders_)
                avcodec_free_context(&decoder);
            avformat_close_input(&input_);
        }

        void run()
        {
            if (!movie_.isReadable)
                return;
            for (unsigned int i = 0; i < input_->nb_streams; ++i)
                open(*input_->streams[i]);
            AVPacket* packet = av_packet_alloc();
            int read = 0;
            while ((read = av_read_frame(input_, packet)) >= 0) {
                movie_.errors += packet->flags & AV_PKT_FLAG_CORRUPT ? 1 : 0;
                const int index = packet->stream_index;
                if (isVideo(index))
                    movie_.lastDuration = in90000(packet->duration, index);
                decode(packet, index);
                av_packet_unref(packet);
            }
            movie_.errors += read == AVERROR_EOF ? 0 : 1;
            av_packet_free(&packet);
            for (unsigned int i = 0; i < input_->nb_streams; ++i)
                decode(nullptr, static_cast<int>(i));
        }

    private:
        [[nodiscard]] bool isVideo(int stream) const
        {
            return input_->streams[stream]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
        }
        [[nodiscard]] std::int64_t in90000(std::int64_t time, int stream) const
        {
            return av_rescale_q(time, input_->streams[stream]->time_base, {1, 90000});
        }
        void open(const AVStream& stream)
        {
            AVCodecContext* decoder = avcodec_alloc_context3(avcodec_find_decoder(stream.codecpar->codec_id));
            avcodec_parameters_to_context(decoder, stream.codecpar);
            decoder->pkt_timebase = stream.time_base;
            decoder->err_recognition = AV_EF_EXPLODE | AV_EF_CRCCHECK;
            decoder->thread_count = 1;
            EXPECT_EQ(avcodec_open2(decoder, nullptr, nullptr), 0);
            decoders_.push_back(decoder);
            auto& begin = isVideo(stream.index) ? movie_.videoBegin : movie_.soundBegin;
            auto& duration = isVideo(stream.index) ? movie_.videoDuration : movie_.soundDuration;
            begin = in90000(stream.start_time, stream.index);
            duration = in90000(stream.duration, stream.index);
        }
        void decode(const AVPacket* packet, int stream)
        {
            AVCodecContext* const decoder = decoders_[static_cast<std::size_t>(stream)];
            movie_.errors += avcodec_send_packet(decoder, packet) < 0 ? 1 : 0;
            AVFrame* frame = av_frame_alloc();
            int received = 0;
            while ((received = avcodec_receive_frame(decoder, frame)) == 0) {
                if (isVideo(stream))
                    movie_.pictures.push_back({in90000(frame->pts, stream), frame->data[0][0]});
                else
                    listen(*frame, stream);
            }
            movie_.errors += received == AVERROR(EAGAIN) || received == AVERROR_EOF ? 0 : 1;
            av_frame_free(&frame);
        }
        void listen(const AVFrame& frame, int stream)
        {
            const std::int64_t begin = av_rescale_q(frame.pts, input_->streams[stream]->time_base, {1, 48000});
            const auto* const samples = reinterpret_cast<const float*>(frame.data[0]);
            for (int i = 0; i < frame.nb_samples; ++i) {
                if (std::abs(samples[i]) > loudest_) {
                    loudest_ = std::abs(samples[i]);
                    movie_.tick = begin + i;
                }
            }
        }

        DecodedMovie& movie_;
        AVFormatContext* input_ = nullptr;
        std::vector<AVCodecContext*> decoders_;
        float loudest_ = 0.1F;
    };
};

} // namespace nimbrale::ffmpeg
