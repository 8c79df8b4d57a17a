#include "platform/x11/displays/screen_space.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace nimbrale::x11 {

namespace {

/// A point that was computed from a pixel may miss it by the rounding of doubles, which decides nothing.
constexpr double arithmeticSlack = 1e-6;

int nearestPixel(double value)
{
    constexpr double lowest = std::numeric_limits<int>::min();
    constexpr double highest = std::numeric_limits<int>::max();
    if (std::isnan(value))
        return 0;
    return static_cast<int>(std::clamp(std::floor(value + 0.5 + arithmeticSlack), lowest, highest));
}

double difference(int pixel, int other)
{
    return static_cast<double>(std::int64_t{pixel} - other);
}

int lengthBetween(int near, int far)
{
    constexpr std::int64_t highest = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp<std::int64_t>(std::int64_t{far} - near, 0, highest));
}

} // namespace

ScreenSpace::ScreenSpace(const PixelRect& mainPixels, double desktopScale, std::vector<Display> displays)
    : origin_{static_cast<double>(mainPixels.x), static_cast<double>(mainPixels.bottom())}, desktopScale_(desktopScale),
      displays_(std::move(displays))
{
    for (const auto& [pixels, scale] : displays_) {
        const Point corner = desktopPointOf({pixels.x, pixels.y});
        const Size size{pixels.width / scale, pixels.height / scale};
        frames_.push_back({corner.x, corner.y - size.height, size.width, size.height});
    }
}

Point ScreenSpace::desktopPointOf(PixelPoint pixel) const
{
    return {(pixel.x - origin_.x) / desktopScale_, (origin_.y - pixel.y) / desktopScale_};
}

Point ScreenSpace::pointOf(PixelPoint pixel) const
{
    for (std::size_t index = 0; index < displays_.size(); ++index) {
        const auto& [pixels, scale] = displays_[index];
        if (pixels.contains(pixel))
            return {frames_[index].minX() + difference(pixel.x, pixels.x) / scale,
                    frames_[index].maxY() - difference(pixel.y, pixels.y) / scale};
    }
    return desktopPointOf(pixel);
}

Rect ScreenSpace::pointsOf(const PixelRect& pixels, std::size_t display) const
{
    const auto& [area, scale] = displays_[display];
    const double height = pixels.height / scale;
    return {frames_[display].minX() + difference(pixels.x, area.x) / scale,
            frames_[display].maxY() - difference(pixels.y, area.y) / scale - height, pixels.width / scale, height};
}

std::optional<std::size_t> ScreenSpace::displayHolding(const Rect& screenRect) const
{
    std::optional<std::size_t> holder;
    double largest = 0;
    for (std::size_t index = 0; index < frames_.size(); ++index) {
        const Rect common = frames_[index].intersectedWith(screenRect);
        const double area = common.width * common.height;
        if (area > largest) {
            holder = index;
            largest = area;
        }
    }
    return holder;
}

PixelRect ScreenSpace::pixelsOf(const Rect& screenRect) const
{
    // A corner between pixels of the root, and the point that it is at.
    Point corner = origin_;
    Point at{0, 0};
    double scale = desktopScale_;
    if (const auto holder = displayHolding(screenRect)) {
        corner = {static_cast<double>(displays_[*holder].pixels.x), static_cast<double>(displays_[*holder].pixels.y)};
        at = {frames_[*holder].minX(), frames_[*holder].maxY()};
        scale = displays_[*holder].scale;
    }
    const int left = nearestPixel(corner.x + (screenRect.minX() - at.x) * scale);
    const int right = nearestPixel(corner.x + (screenRect.maxX() - at.x) * scale);
    const int top = nearestPixel(corner.y + (at.y - screenRect.maxY()) * scale);
    const int bottom = nearestPixel(corner.y + (at.y - screenRect.minY()) * scale);
    return {left, top, lengthBetween(left, right), lengthBetween(top, bottom)};
}

double ScreenSpace::scaleAt(const Rect& screenRect) const
{
    const auto holder = displayHolding(screenRect);
    return holder ? displays_[*holder].scale : desktopScale_;
}

PixelPoint ScreenSpace::pixelOf(Point regionPoint, std::size_t display) const
{
    const auto& [pixels, scale] = displays_[display];
    return {nearestPixel(pixels.x + regionPoint.x * scale), nearestPixel(pixels.y + regionPoint.y * scale)};
}

} // namespace nimbrale::x11
