#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

namespace nimbrale::ffmpeg {

/// What a movie in pieces is to hold. Times are in 1/90000 s.
struct PieceMovieContent {
    static constexpr int second = 90000;

    std::vector<std::int64_t> pictureTimes;
    /// When the last picture's showing ends.
    std::int64_t end = 0;
    /// Sound up to the end: silence, but for one tick at this sample of 48000 in a second. -1: no sound.
    int tick = -1;
    /// The sample that sound begins at.
    int soundBegin = 0;
    /// Whether pictures are decoded in another order than they are shown in, and sound has a lead-in that is not heard.
    /// The writer then tells by edit lists where tracks begin; else all times are what they are.
    bool hasEditLists = false;
    /// Whether pictures are noise instead of one brightness, and so need many bytes.
    bool isNoise = false;
    int width = 64;
    int height = 48;
};

/// Makes movies in pieces of a second with the library's own encoders and writer, into memory.
class PieceMovie {
public:
    static std::vector<std::uint8_t> make(const PieceMovieContent& content)
    {
        PieceMovie movie(content);
        movie.run();
        std::uint8_t* bytes = nullptr;
        const int size = avio_close_dyn_buf(std::exchange(movie.output_->pb, nullptr), &bytes);
        std::vector<std::uint8_t> result(bytes, bytes + size);
        av_free(bytes);
        return result;
    }

    /// The brightness that the picture of this number has all over, within what encoding changes.
    static int brightness(std::size_t picture) { return 40 + static_cast<int>(picture * 37 % 160); }

    /// Pictures at irregular times, from 0 up to `end`.
    static std::vector<std::int64_t> irregularTimes(std::int64_t end)
    {
        std::vector<std::int64_t> times;
        std::uint32_t random = 1;
        for (std::int64_t time = 0; time < end; time += 1500 + random % 15000) {
            times.push_back(time);
            random = random * 1664525 + 1013904223;
        }
        return times;
    }

private:
    explicit PieceMovie(const PieceMovieContent& content) : content_(content)
    {
        avformat_alloc_output_context2(&output_, nullptr, "mov", nullptr);
        avio_open_dyn_buf(&output_->pb);
        video_ = openVideo();
        if (content_.tick >= 0)
            audio_ = openAudio();
        AVDictionary* options = nullptr;
        av_dict_set(&options, "movflags", "+frag_custom+empty_moov+default_base_moof", 0);
        if (content_.hasEditLists)
            av_dict_set(&options, "movflags", "+delay_moov", AV_DICT_APPEND);
        av_dict_set(&options, "video_track_timescale", "90000", 0);
        EXPECT_GE(avformat_write_header(output_, &options), 0);
        av_dict_free(&options);
    }
    ~PieceMovie()
    {
        av_packet_free(&picture_);
        avcodec_free_context(&video_);
        avcodec_free_context(&audio_);
        avformat_free_context(output_);
    }

    AVCodecContext* openVideo()
    {
        AVCodecContext* encoder = avcodec_alloc_context3(avcodec_find_encoder_by_name("libx264"));
        encoder->width = content_.width;
        encoder->height = content_.height;
        encoder->pix_fmt = AV_PIX_FMT_YUV420P;
        encoder->time_base = {1, PieceMovieContent::second};
        encoder->gop_size = 20;
        encoder->thread_count = 1;
        encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        av_opt_set(encoder->priv_data, "preset", "ultrafast", 0);
        if (content_.hasEditLists) {
            encoder->max_b_frames = 2;
            av_opt_set(encoder->priv_data, "x264-params", "b-adapt=0:scenecut=0", 0);
        } else {
            encoder->max_b_frames = 0;
            av_opt_set(encoder->priv_data, "tune", "zerolatency", 0);
        }
        return open(encoder);
    }
    AVCodecContext* openAudio()
    {
        AVCodecContext* encoder = avcodec_alloc_context3(avcodec_find_encoder(AV_CODEC_ID_AAC));
        encoder->sample_rate = 48000;
        encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
        encoder->ch_layout = AV_CHANNEL_LAYOUT_MONO;
        encoder->bit_rate = 96000;
        encoder->time_base = {1, 48000};
        encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        return open(encoder);
    }
    AVCodecContext* open(AVCodecContext* encoder)
    {
        EXPECT_EQ(avcodec_open2(encoder, nullptr, nullptr), 0);
        AVStream* const stream = avformat_new_stream(output_, nullptr);
        stream->time_base = encoder->time_base;
        avcodec_parameters_from_context(stream->codecpar, encoder);
        return encoder;
    }

    void run()
    {
        std::int64_t flushed = 0;
        for (std::size_t i = 0; i < content_.pictureTimes.size(); ++i) {
            const std::int64_t time = content_.pictureTimes[i];
            writeSound(time);
            if (time >= flushed + PieceMovieContent::second) {
                EXPECT_GE(av_write_frame(output_, nullptr), 0);
                flushed = time;
            }
            writePicture(i);
        }
        write(video_, nullptr, 0);
        writeLastPicture(content_.end - content_.pictureTimes.back());
        writeSound(content_.end);
        if (audio_ != nullptr)
            write(audio_, nullptr, 1);
        EXPECT_GE(av_write_frame(output_, nullptr), 0);
    }

    void writePicture(std::size_t index)
    {
        AVFrame* frame = av_frame_alloc();
        frame->width = content_.width;
        frame->height = content_.height;
        frame->format = AV_PIX_FMT_YUV420P;
        frame->pts = content_.pictureTimes[index];
        av_frame_get_buffer(frame, 0);
        for (int plane = 0; plane < 3; ++plane) {
            const int lines = plane == 0 ? content_.height : content_.height / 2;
            std::memset(frame->data[plane], plane == 0 ? brightness(index) : 128,
                        static_cast<std::size_t>(frame->linesize[plane]) * static_cast<std::size_t>(lines));
        }
        for (int i = 0; content_.isNoise && i < frame->linesize[0] * content_.height; ++i)
            frame->data[0][i] = static_cast<std::uint8_t>((noise_ = noise_ * 1664525 + 1013904223) >> 24);
        write(video_, frame, 0);
        av_frame_free(&frame);
    }

    /// Up to this time. The encoder puts a lead-in of 1024 samples before what it is given: without edit lists, what it
    /// is given begins by as much later.
    void writeSound(std::int64_t until)
    {
        while (audio_ != nullptr && (content_.soundBegin + sound_) * 15 < until * 8) {
            AVFrame* frame = av_frame_alloc();
            frame->nb_samples = audio_->frame_size;
            frame->format = audio_->sample_fmt;
            frame->ch_layout = audio_->ch_layout;
            frame->sample_rate = 48000;
            frame->pts = content_.soundBegin + (content_.hasEditLists ? 0 : 1024) + sound_;
            av_frame_get_buffer(frame, 0);
            auto* const samples = reinterpret_cast<float*>(frame->data[0]);
            for (int i = 0; i < frame->nb_samples; ++i)
                samples[i] = frame->pts + i == content_.tick ? 0.9F : 0.0F;
            sound_ += frame->nb_samples;
            write(audio_, frame, 1);
            av_frame_free(&frame);
        }
    }

    void write(AVCodecContext* encoder, const AVFrame* frame, int stream)
    {
        EXPECT_EQ(avcodec_send_frame(encoder, frame), 0);
        AVPacket* packet = av_packet_alloc();
        while (avcodec_receive_packet(encoder, packet) == 0) {
            if (stream == 0) {
                if (picture_->data != nullptr)
                    writeLastPicture(packet->dts - picture_->dts);
                av_packet_move_ref(picture_, packet);
            } else {
                write(packet, encoder, stream);
            }
        }
        av_packet_free(&packet);
    }

    /// A picture is written when the next one is there, since only then its duration is known, from which the writer
    /// computes the times of the next piece.
    void writeLastPicture(std::int64_t duration)
    {
        picture_->duration = duration;
        write(picture_, video_, 0);
    }

    void write(AVPacket* packet, const AVCodecContext* encoder, int stream)
    {
        packet->stream_index = stream;
        av_packet_rescale_ts(packet, encoder->time_base, output_->streams[stream]->time_base);
        EXPECT_GE(av_write_frame(output_, packet), 0);
        av_packet_unref(packet);
    }

    PieceMovieContent content_;
    AVFormatContext* output_ = nullptr;
    AVCodecContext* video_ = nullptr;
    AVCodecContext* audio_ = nullptr;
    AVPacket* picture_ = av_packet_alloc();
    std::int64_t sound_ = 0;
    std::uint32_t noise_ = 1;
};

} // namespace nimbrale::ffmpeg
