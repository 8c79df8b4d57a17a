#include "platform/x11/capture/paint_trail.h"

namespace nimbrale::x11 {

void PaintTrail::leavePlace(const PixelRect& place, Clock::time_point now)
{
    places_.add(PixelRegion(place), now, {});
}

void PaintTrail::leavePaint(const PixelRegion& painted, Clock::time_point now)
{
    paints_.add(painted, now, {});
}

void PaintTrail::release(Clock::time_point now, Clock::time_point proven)
{
    places_.release(now, proven);
    paints_.release(now, proven);
}

void PaintTrail::clear()
{
    *this = {};
}

PixelRegion PaintTrail::region(const PixelRect& place, const PixelRegion& painted) const
{
    PixelRegion result;
    if (places_.region().isEmpty() || paints_.region().isEmpty())
        return result;
    PixelRegion all(painted);
    all |= paints_.region();
    std::vector<PixelRect> everywhere = places_.bounds();
    everywhere.push_back(place);
    for (const PixelRect& each : everywhere) {
        PixelRegion there(all);
        there.translate(each.x, each.y);
        there &= PixelRegion(each);
        result |= there;
    }
    return result;
}

} // namespace nimbrale::x11
