#include "platform/x11/displays/free_areas.h"

#include <algorithm>
#include <limits>

namespace nimbrale::x11 {

namespace {

/// Along one edge of the X screen.
struct Span {
    std::uint32_t first;
    std::uint32_t last;
};

/// How much of a display a strut takes that reaches `depth` pixels into it, of `extent`. One that does not reach the
/// display, or that would take more than half of it, is meant for another display.
int takenPixels(std::int64_t depth, int extent)
{
    return depth > 0 && depth <= extent / 2 ? static_cast<int>(depth) : 0;
}

bool meets(const Span& span, std::int64_t start, std::int64_t end)
{
    return span.first < end && span.last >= start;
}

PixelRect without(const PixelRect& display, const Strut& strut, const PixelRect& screen)
{
    const auto takenFrom = [](std::uint32_t reserved, std::int64_t margin, int extent) {
        return reserved == 0 ? 0 : takenPixels(reserved - margin, extent);
    };
    int left = 0;
    int right = 0;
    int top = 0;
    int bottom = 0;
    if (meets({strut.leftStart, strut.leftEnd}, display.y, display.bottom()))
        left = takenFrom(strut.left, display.x, display.width);
    if (meets({strut.rightStart, strut.rightEnd}, display.y, display.bottom()))
        right = takenFrom(strut.right, screen.right() - display.right(), display.width);
    if (meets({strut.topStart, strut.topEnd}, display.x, display.right()))
        top = takenFrom(strut.top, display.y, display.height);
    if (meets({strut.bottomStart, strut.bottomEnd}, display.x, display.right()))
        bottom = takenFrom(strut.bottom, screen.bottom() - display.bottom(), display.height);
    return {display.x + left, display.y + top, display.width - left - right, display.height - top - bottom};
}

/// The part of the display that the window manager tells of it: the largest, since areas of neighbors may reach in.
PixelRect toldPart(const PixelRect& display, const std::vector<PixelRect>& perDisplay)
{
    PixelRect largest;
    for (const PixelRect& candidate : perDisplay) {
        const PixelRect part = display.intersectedWith(candidate);
        if (part.area() > largest.area())
            largest = part;
    }
    return largest;
}

} // namespace

std::optional<Strut> strutFrom(std::span<const std::uint32_t> partial, std::span<const std::uint32_t> whole)
{
    constexpr std::uint32_t end = std::numeric_limits<std::uint32_t>::max();
    if (partial.size() == 12) {
        return Strut{partial[0], partial[1], partial[2], partial[3], partial[4],  partial[5],
                     partial[6], partial[7], partial[8], partial[9], partial[10], partial[11]};
    }
    if (whole.size() == 4)
        return Strut{whole[0], whole[1], whole[2], whole[3], 0, end, 0, end, 0, end, 0, end};
    return std::nullopt;
}

std::vector<PixelRect> rectanglesFrom(std::span<const std::uint32_t> numbers)
{
    std::vector<PixelRect> rectangles;
    for (; numbers.size() >= 4; numbers = numbers.subspan(4)) {
        rectangles.push_back({static_cast<int>(numbers[0]), static_cast<int>(numbers[1]), static_cast<int>(numbers[2]),
                              static_cast<int>(numbers[3])});
    }
    return rectangles;
}

std::optional<PixelRect> commonAreaFrom(std::span<const std::uint32_t> numbers, std::size_t desktop)
{
    const std::vector<PixelRect> areas = rectanglesFrom(numbers);
    if (areas.empty())
        return std::nullopt;
    return areas[std::min(desktop, areas.size() - 1)];
}

std::vector<PixelRect> freeAreas(const std::vector<PixelRect>& displays, const SpaceClaims& claims)
{
    std::vector<PixelRect> free;
    for (const PixelRect& display : displays) {
        PixelRect area = display;
        for (const Strut& strut : claims.struts)
            area = area.intersectedWith(without(display, strut, claims.screen));
        const PixelRect told = toldPart(display, claims.perDisplay);
        if (!told.isEmpty())
            area = area.intersectedWith(told);
        else if (displays.size() == 1 && claims.common)
            area = area.intersectedWith(*claims.common);
        free.push_back(area.isEmpty() ? display : area);
    }
    return free;
}

} // namespace nimbrale::x11
