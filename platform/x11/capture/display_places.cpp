#include "platform/x11/capture/display_places.h"

#include <algorithm>
#include <utility>

namespace nimbrale::x11 {

void DisplayPlaces::doubt()
{
    areDoubted_ = true;
    ++news_;
}

void DisplayPlaces::learn(std::vector<DisplayPlace> displays)
{
    displays_ = std::move(displays);
    areDoubted_ = false;
}

void DisplayPlaces::compare(const DisplayPlace& display)
{
    if (!isCertain(display))
        doubt();
}

bool DisplayPlaces::isCertain(const DisplayPlace& display) const
{
    return !areDoubted_ && std::ranges::find(displays_, display) != displays_.end();
}

} // namespace nimbrale::x11
