#pragma once

#include <cstdint>
#include <memory>
#include <span>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

namespace nimbrale {

/// Decodes the single pictures of a camera's motion JPEG, with the tables that cameras leave out. Not thread-safe.
class MotionJpegDecoder {
public:
    MotionJpegDecoder();
    ~MotionJpegDecoder();
    MotionJpegDecoder(const MotionJpegDecoder&) = delete;
    MotionJpegDecoder& operator=(const MotionJpegDecoder&) = delete;

    /// Null for anything but a whole picture without errors. Belongs to the decoder, until the next call.
    [[nodiscard]] const AVFrame* decode(std::span<const std::uint8_t> jpeg);

private:
    struct Release {
        void operator()(AVCodecContext* context) const;
        void operator()(AVFrame* frame) const;
        void operator()(AVPacket* packet) const;
    };

    [[nodiscard]] bool isReady();

    std::unique_ptr<AVCodecContext, Release> context_;
    std::unique_ptr<AVFrame, Release> frame_;
    std::unique_ptr<AVPacket, Release> packet_;
};

} // namespace nimbrale
