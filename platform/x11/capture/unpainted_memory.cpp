#include "platform/x11/capture/unpainted_memory.h"

namespace nimbrale::x11 {

void UnpaintedMemory::add(const CapturedWindow& window, const PixelRegion& leftOut)
{
    PixelRegion carried(leftOut);
    if (window.isSizeKnown())
        carried &= PixelRegion(window.bounds());
    if (carried.isEmpty())
        return;
    carried.translate(-window.x, -window.y);
    regions_[window.id] |= carried;
}

PixelRegion UnpaintedMemory::placeOf(const CapturedWindow& window) const
{
    const auto found = regions_.find(window.id);
    if (found == regions_.end())
        return {};
    PixelRegion place(found->second);
    place.translate(window.x, window.y);
    place &= PixelRegion(window.bounds());
    return place;
}

} // namespace nimbrale::x11
