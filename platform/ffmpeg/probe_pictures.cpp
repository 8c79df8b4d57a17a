#include "platform/ffmpeg/probe_pictures.h"

#include "platform/pixel_rect.h"

#include <algorithm>
#include <cstdlib>

extern "C" {
#include <libavutil/frame.h>
}

namespace nimbrale::ffmpeg {

namespace {

constexpr int dark = 60;
constexpr int bright = 220;
constexpr int between = (dark + bright) / 2;
/// Mean difference of samples. What shows another picture, or colors in each other's place, is far beyond it.
constexpr std::int64_t mostDifference = 4;

PixelRect brightPart(int width, int height, int number)
{
    const int columns = width / 4;
    const int rows = height / 4;
    return {(7 + 5 * number) % (width - columns), (3 + 3 * number) % (height - rows), columns, rows};
}

/// What the sample of that plane is.
int sampleAt(int plane, int x, int y, const PixelRect& part, int width)
{
    if (plane == 0)
        return part.contains({x, y}) ? bright : dark;
    const bool isLeft = 4 * x < width;
    return isLeft == (plane == 1) ? 90 : 160;
}

/// Calls `work` with each sample of a plane and what it is to be.
template <typename Work>
void forEachSample(const AVFrame& frame, int plane, int number, const Work& work)
{
    const PixelRect part = brightPart(frame.width, frame.height, number);
    const int divisor = plane == 0 ? 1 : 2;
    for (int y = 0; y < frame.height / divisor; ++y) {
        std::uint8_t* const row = frame.data[plane] + std::ptrdiff_t{y} * frame.linesize[plane];
        for (int x = 0; x < frame.width / divisor; ++x)
            work(row[x], sampleAt(plane, x, y, part, frame.width));
    }
}

} // namespace

FrameHandle probePicture(int width, int height, int number)
{
    FrameHandle frame = newPicture(AV_PIX_FMT_YUV420P, width, height);
    for (int plane = 0; plane < 3; ++plane)
        forEachSample(*frame, plane, number,
                      [](std::uint8_t& sample, int value) { sample = static_cast<std::uint8_t>(value); });
    return frame;
}

bool looksLike(const AVFrame& frame, int number)
{
    for (int plane = 0; plane < 3; ++plane) {
        std::int64_t count = 0;
        std::int64_t difference = 0;
        bool hasEdges = true;
        forEachSample(frame, plane, number, [&](std::uint8_t sample, int value) {
            ++count;
            difference += std::abs(sample - value);
            hasEdges = hasEdges && (plane != 0 || (sample > between) == (value > between));
        });
        if (!hasEdges || difference > count * mostDifference)
            return false;
    }
    return true;
}

} // namespace nimbrale::ffmpeg
