#pragma once

#include "platform/pixel_buffer.h"
#include "platform/pixel_rect.h"

#include <cstddef>
#include <cstdint>

namespace nimbrale::ffmpeg {

/// Where a picture in YUV 4:2:0 lies: a plane of luma, and two of chroma with half as many columns and rows.
struct YuvPlanes {
    std::uint8_t* luma = nullptr;
    std::uint8_t* blueChroma = nullptr;
    std::uint8_t* redChroma = nullptr;
    /// Bytes from one row to the next.
    std::ptrdiff_t lumaStride = 0;
    std::ptrdiff_t blueChromaStride = 0;
    std::ptrdiff_t redChromaStride = 0;
};

/// Writes what `rect` of `pixels` looks like into the same place of `planes`: BT.709 in the limited range, no sample
/// more than 1 off the exact value; a chroma sample is the mean of its four pixels. The rectangle is cut to the pixels
/// and widened to even edges, so the pixels' width and height must be even. Any thread.
void convertToYuv(const PixelBuffer& pixels, const PixelRect& rect, const YuvPlanes& planes);

} // namespace nimbrale::ffmpeg
