#pragma once

#include "platform/ffmpeg/av_handles.h"

namespace nimbrale::ffmpeg {

/// The picture of that number, each different, in planar YUV 4:2:0: a bright rectangle at an odd place over two colors.
/// Both sizes even, at least 2.
[[nodiscard]] FrameHandle probePicture(int width, int height, int number);
/// Whether `frame`, in the same format, is that picture within a codec's error, and each edge of its rectangle is at
/// its pixel.
[[nodiscard]] bool looksLike(const AVFrame& frame, int number);

} // namespace nimbrale::ffmpeg
