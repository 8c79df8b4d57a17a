#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

struct AVBufferPool;
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
        void operator()(AVBufferPool* pool) const;
    };

    [[nodiscard]] bool isReady();
    [[nodiscard]] bool takeBytes(std::span<const std::uint8_t> jpeg);

    std::unique_ptr<AVCodecContext, Release> context_;
    std::unique_ptr<AVFrame, Release> frame_;
    std::unique_ptr<AVPacket, Release> packet_;
    std::unique_ptr<AVBufferPool, Release> memory_; ///< for the bytes of pictures, in pieces of `pieceSize_`
    std::size_t pieceSize_ = 0;
};

} // namespace nimbrale
