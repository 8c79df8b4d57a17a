#include "platform/geometry.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace nimbrale {

Rect Rect::null()
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    return {infinity, infinity, 0, 0};
}

bool Rect::isNull() const
{
    return std::isinf(x) || std::isinf(y);
}

Rect Rect::integral() const
{
    if (isNull())
        return *this;
    const double left = std::floor(minX());
    const double near = std::floor(minY());
    return {left, near, std::ceil(maxX()) - left, std::ceil(maxY()) - near};
}

Rect Rect::intersectedWith(const Rect& other) const
{
    if (isNull() || other.isNull())
        return null();
    const double left = std::max(minX(), other.minX());
    const double near = std::max(minY(), other.minY());
    const double right = std::min(maxX(), other.maxX());
    const double far = std::min(maxY(), other.maxY());
    if (right < left || far < near)
        return null();
    return {left, near, right - left, far - near};
}

Rect Rect::unitedWith(const Rect& other) const
{
    if (isNull())
        return other;
    if (other.isNull())
        return *this;
    const double left = std::min(minX(), other.minX());
    const double near = std::min(minY(), other.minY());
    return {left, near, std::max(maxX(), other.maxX()) - left, std::max(maxY(), other.maxY()) - near};
}

double roundHalfAwayFromZero(double value)
{
    return std::round(value);
}

} // namespace nimbrale
