#include "platform/x11/capture/output_scaling.h"

#include <algorithm>
#include <cmath>

namespace nimbrale::x11 {

namespace {

struct Span {
    int begin;
    int end;
};

/// The output pixels that may depend on source pixels from `begin` up to `end`. Output pixel o is taken at the source
/// position (o + 1/2) × step − 1/2, from the pixels on both sides of it. The server's arithmetic has 16 binary places:
/// one pixel more on either side makes up for that.
Span outputSpan(int begin, int end, double step, int outputSize)
{
    const double first = (begin - 0.5) / step - 0.5;
    const double last = (end + 0.5) / step - 0.5;
    return {std::clamp(static_cast<int>(std::floor(first)) - 1, 0, outputSize),
            std::clamp(static_cast<int>(std::ceil(last)) + 1, 0, outputSize)};
}

/// In the middle of the output. Within a pixel of its proportion the source is stretched: a bar of a pixel would be
/// seen, and that much stretching is not.
PixelRect pictureInside(int sourceWidth, int sourceHeight, int outputWidth, int outputHeight)
{
    const double factor =
        std::min(static_cast<double>(outputWidth) / sourceWidth, static_cast<double>(outputHeight) / sourceHeight);
    const int width = std::max(1, static_cast<int>(std::lround(sourceWidth * factor)));
    const int height = std::max(1, static_cast<int>(std::lround(sourceHeight * factor)));
    if (outputWidth - width <= 1 && outputHeight - height <= 1)
        return {0, 0, outputWidth, outputHeight};
    return {(outputWidth - width) / 2, (outputHeight - height) / 2, width, height};
}

} // namespace

OutputScaling::OutputScaling(int sourceWidth, int sourceHeight, int outputWidth, int outputHeight, OutputFit fit)
    : sourceWidth_(sourceWidth), sourceHeight_(sourceHeight), outputWidth_(outputWidth), outputHeight_(outputHeight),
      picture_(fit == OutputFit::inside ? pictureInside(sourceWidth, sourceHeight, outputWidth, outputHeight)
                                        : PixelRect{0, 0, outputWidth, outputHeight})
{}

PixelRegion OutputScaling::outputOf(const PixelRegion& changed) const
{
    if (isExact())
        return changed;
    PixelRegion output;
    for (const PixelRect& rect : changed.rects()) {
        const Span columns = outputSpan(rect.x, rect.x + rect.width, horizontalStep(), picture_.width);
        const Span rows = outputSpan(rect.y, rect.y + rect.height, verticalStep(), picture_.height);
        output.add(picture_.x + columns.begin, picture_.y + rows.begin, columns.end - columns.begin,
                   rows.end - rows.begin);
    }
    return output;
}

} // namespace nimbrale::x11
