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

} // namespace

PixelRegion OutputScaling::outputOf(const PixelRegion& changed) const
{
    if (isExact())
        return changed;
    PixelRegion output;
    for (const PixelRect& rect : changed.rects()) {
        const Span columns = outputSpan(rect.x, rect.x + rect.width, horizontalStep(), outputWidth_);
        const Span rows = outputSpan(rect.y, rect.y + rect.height, verticalStep(), outputHeight_);
        output.add(columns.begin, rows.begin, columns.end - columns.begin, rows.end - rows.begin);
    }
    return output;
}

} // namespace nimbrale::x11
