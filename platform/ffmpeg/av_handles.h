#pragma once

#include <memory>
#include <string>

struct AVBufferRef;
struct AVCodecContext;
struct AVCodecParameters;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;

namespace nimbrale::ffmpeg {

struct ReleaseAv {
    void operator()(AVBufferRef* buffer) const;
    void operator()(AVCodecContext* context) const;
    void operator()(AVCodecParameters* parameters) const;
    /// Without its `pb`, which whoever set it gives back.
    void operator()(AVFormatContext* context) const;
    void operator()(AVFrame* frame) const;
    void operator()(AVPacket* packet) const;
};

using BufferHandle = std::unique_ptr<AVBufferRef, ReleaseAv>;
using CodecContextHandle = std::unique_ptr<AVCodecContext, ReleaseAv>;
using ParametersHandle = std::unique_ptr<AVCodecParameters, ReleaseAv>;
using FormatContextHandle = std::unique_ptr<AVFormatContext, ReleaseAv>;
using FrameHandle = std::unique_ptr<AVFrame, ReleaseAv>;
using PacketHandle = std::unique_ptr<AVPacket, ReleaseAv>;

/// These never return null: where there is no memory they throw std::bad_alloc.
[[nodiscard]] FrameHandle newFrame();
/// A picture with memory of its own for its pixels, which are not initialized. `format` is an AVPixelFormat.
[[nodiscard]] FrameHandle newPicture(int format, int width, int height);
[[nodiscard]] PacketHandle newPacket();

/// What a libav function's negative result means.
[[nodiscard]] std::string avErrorText(int code);

} // namespace nimbrale::ffmpeg
