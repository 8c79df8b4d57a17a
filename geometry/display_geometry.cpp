#include "geometry/display_geometry.h"

#include "platform/result.h"

#include <algorithm>
#include <cmath>

namespace nimbrale {

namespace {

/// The points that fit into `length`, which may miss a whole number by the rounding of doubles.
double wholePoints(double length)
{
    constexpr double arithmeticSlack = 1e-6;
    return std::floor(length + arithmeticSlack);
}

} // namespace

DisplayGeometry DisplayGeometry::of(const Screen& screen, Size size)
{
    return {{wholePoints(size.width), wholePoints(size.height)}, screen.frame, menuBarHeightOf(screen)};
}

Rect DisplayGeometry::screenRect(const Rect& region) const
{
    return {screenFrame.minX() + region.minX(), screenFrame.maxY() - region.maxY(), region.width, region.height};
}

Rect DisplayGeometry::region(const Rect& screenRect) const
{
    return {screenRect.minX() - screenFrame.minX(), screenFrame.maxY() - screenRect.maxY(), screenRect.width,
            screenRect.height};
}

Rect DisplayGeometry::verticalGuideRect(double x) const
{
    return screenRect({x, 0, 0, size.height});
}

Rect DisplayGeometry::horizontalGuideRect(double y) const
{
    return screenRect({0, y, size.width, 0});
}

Rect DisplayGeometry::clamp(const Rect& region, PreserveSize preserveSize) const
{
    Rect clamped = region.integral();
    if (preserveSize == PreserveSize::no) {
        const Rect onDisplay = clamped.intersectedWith({0, 0, size.width, size.height});
        if (!onDisplay.isEmpty())
            clamped = onDisplay;
    }
    const double width = std::min(size.width, std::max(smallestRegionSide, clamped.width));
    const double height = std::min(size.height, std::max(smallestRegionSide, clamped.height));
    const double x = std::min(size.width - width, std::max(0.0, clamped.minX()));
    const double y = std::min(size.height - height, std::max(0.0, clamped.minY()));
    return {x, y, width, height};
}

Rect DisplayGeometry::snapArea() const
{
    return {0, menuBarHeight, size.width, size.height - menuBarHeight};
}

Rect DisplayGeometry::regionFromStored(const StoredRegion& stored) const
{
    const Rect raw{static_cast<double>(stored.left), menuBarHeight + 1 + static_cast<double>(stored.top),
                   static_cast<double>(stored.width), static_cast<double>(stored.height)};
    return clamp(raw, PreserveSize::yes);
}

StoredRegion DisplayGeometry::storedFromRegion(const Rect& region) const
{
    return {truncatedToInteger(region.minX()), truncatedToInteger(region.minY() - (menuBarHeight + 1)),
            truncatedToInteger(region.width), truncatedToInteger(region.height)};
}

bool pointerIsIn(const Rect& rect, Point location)
{
    return location.x >= rect.minX() && location.x < rect.maxX() && location.y > rect.minY() &&
           location.y <= rect.maxY();
}

double menuBarHeightOf(const Screen& screen)
{
    return std::max(0.0, screen.frame.maxY() - screen.visibleFrame.maxY() - 1);
}

std::optional<Screen> displayUnderMouse(const Screens& screens, std::optional<DisplayID> leftOut)
{
    const Point location = screens.mouseLocation();
    for (const Screen& screen : screens.screens()) {
        if (screen.displayID != leftOut && pointerIsIn(screen.frame, location))
            return screen;
    }
    return std::nullopt;
}

std::int64_t truncatedToInteger(double value)
{
    // The bounds are the powers of two that a double holds exactly; the largest integer itself is not one of them.
    constexpr double limit = 0x1p63;
    const double truncated = std::trunc(value);
    if (!std::isfinite(value) || truncated < -limit || truncated >= limit)
        programmingError("a coordinate is not finite or does not fit a 64-bit integer");
    return static_cast<std::int64_t>(truncated);
}

} // namespace nimbrale
