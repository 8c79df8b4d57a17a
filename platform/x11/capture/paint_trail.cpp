#include "platform/x11/capture/paint_trail.h"

#include <algorithm>
#include <iterator>

namespace nimbrale::x11 {

namespace {

std::vector<PixelRect> withLargestSize(std::vector<PixelRect> places)
{
    int width = 0;
    int height = 0;
    for (const PixelRect& place : places) {
        width = std::max(width, place.width);
        height = std::max(height, place.height);
    }
    for (PixelRect& place : places)
        place = {place.x, place.y, width, height};
    return places;
}

} // namespace

void PaintTrail::leavePlace(const PixelRect& place, Clock::time_point now)
{
    places_.add(PixelRegion(place), now, {});
}

void PaintTrail::leavePaint(const PixelRegion& painted, Clock::time_point now)
{
    paints_.add(painted, now, {});
}

void PaintTrail::leaveSize(const PixelRect& place, Clock::time_point now)
{
    constexpr HeldPlaces::Hold untilProven{.time = std::chrono::milliseconds(0)};
    leavePlace(place, now);
    if (!resized_.region().isEmpty()) {
        stretched_.add(PixelRegion(place), now, untilProven);
        for (const PixelRect& before : resized_.bounds())
            stretched_.add(PixelRegion(before), now, untilProven);
    }
    resized_.add(PixelRegion(place), now, untilProven);
}

void PaintTrail::release(Clock::time_point now, const HeldPlaces::Progress& progress)
{
    places_.release(now, progress);
    paints_.release(now, progress);
    resized_.release(now, progress);
    stretched_.release(now, progress);
}

void PaintTrail::clear()
{
    *this = {};
}

PixelRegion PaintTrail::region(const PixelRect& place, const PixelRegion& painted) const
{
    std::vector<PixelRect> everywhere = places_.bounds();
    everywhere.push_back(place);
    if (!stretched_.region().isEmpty()) {
        std::ranges::copy(stretched_.bounds(), std::back_inserter(everywhere));
        return PixelRegion(withLargestSize(everywhere));
    }
    PixelRegion result;
    if (places_.region().isEmpty() || paints_.region().isEmpty())
        return result;
    PixelRegion all(painted);
    all |= paints_.region();
    for (const PixelRect& each : everywhere) {
        PixelRegion there(all);
        there.translate(each.x, each.y);
        there &= PixelRegion(each);
        result |= there;
    }
    return result;
}

} // namespace nimbrale::x11
