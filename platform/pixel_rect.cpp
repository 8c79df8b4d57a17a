#include "platform/pixel_rect.h"

#include <algorithm>
#include <limits>

namespace nimbrale {

namespace {

int saturated(std::int64_t value)
{
    return static_cast<int>(
        std::clamp<std::int64_t>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

} // namespace

bool PixelRect::contains(PixelPoint pixel) const
{
    return pixel.x >= x && pixel.x < right() && pixel.y >= y && pixel.y < bottom();
}

PixelRect PixelRect::intersectedWith(const PixelRect& other) const
{
    const std::int64_t left = std::max(x, other.x);
    const std::int64_t top = std::max(y, other.y);
    const std::int64_t commonWidth = std::min(right(), other.right()) - left;
    const std::int64_t commonHeight = std::min(bottom(), other.bottom()) - top;
    if (commonWidth <= 0 || commonHeight <= 0)
        return {};
    return {saturated(left), saturated(top), saturated(commonWidth), saturated(commonHeight)};
}

PixelRect PixelRect::unitedWith(const PixelRect& other) const
{
    if (isEmpty())
        return other;
    if (other.isEmpty())
        return *this;
    const std::int64_t left = std::min(x, other.x);
    const std::int64_t top = std::min(y, other.y);
    return {saturated(left), saturated(top), saturated(std::max(right(), other.right()) - left),
            saturated(std::max(bottom(), other.bottom()) - top)};
}

PixelRect PixelRect::movedBy(int dx, int dy) const
{
    return {saturated(std::int64_t{x} + dx), saturated(std::int64_t{y} + dy), width, height};
}

} // namespace nimbrale
