#include "platform/pixel_rect.h"

#include <algorithm>

namespace nimbrale {

PixelRect unitedPixels(const PixelRect& first, const PixelRect& second)
{
    if (isEmpty(first))
        return second;
    if (isEmpty(second))
        return first;
    const int left = std::min(first.x, second.x);
    const int top = std::min(first.y, second.y);
    const int right = std::max(first.x + first.width, second.x + second.width);
    const int bottom = std::max(first.y + first.height, second.y + second.height);
    return {left, top, right - left, bottom - top};
}

bool overlap(const PixelRect& first, const PixelRect& second)
{
    return !isEmpty(first) && !isEmpty(second) && first.x < second.x + second.width &&
           second.x < first.x + first.width && first.y < second.y + second.height && second.y < first.y + first.height;
}

} // namespace nimbrale
