#include "platform/x11/capture/held_places.h"

#include <algorithm>

namespace nimbrale::x11 {

void HeldPlaces::add(const PixelRegion& place, Clock::time_point now, std::chrono::milliseconds time,
                     std::chrono::milliseconds patience)
{
    if (!place.isEmpty())
        add({place, now, now + time, now + time + patience});
}

void HeldPlaces::add(const HeldPlaces& other)
{
    for (const Place& place : other.places_)
        add(place);
}

void HeldPlaces::add(const Place& place)
{
    // A window tells of many changes in a row without leaving its place.
    const auto known =
        std::find_if(places_.begin(), places_.end(), [&](const Place& each) { return each.region == place.region; });
    if (known != places_.end()) {
        known->left = std::max(known->left, place.left);
        known->until = std::max(known->until, place.until);
        known->untilUnproven = std::max(known->untilUnproven, place.untilUnproven);
        return;
    }
    places_.push_back(place);
    region_ |= place.region;
}

void HeldPlaces::release(Clock::time_point now, Clock::time_point proven)
{
    const auto isDue = [&](const Place& place) {
        return now >= place.until && (place.left <= proven || now >= place.untilUnproven);
    };
    if (std::erase_if(places_, isDue) == 0)
        return;
    region_.clear();
    for (const Place& place : places_)
        region_ |= place.region;
}

std::vector<PixelRect> HeldPlaces::bounds() const
{
    std::vector<PixelRect> result;
    result.reserve(places_.size());
    for (const Place& place : places_)
        result.push_back(place.region.bounds());
    return result;
}

std::optional<HeldPlaces::Clock::time_point> HeldPlaces::lastLeft() const
{
    const auto last = std::max_element(places_.begin(), places_.end(), [](const Place& first, const Place& second) {
        return first.left < second.left;
    });
    return last == places_.end() ? std::nullopt : std::optional(last->left);
}

std::optional<HeldPlaces::Clock::time_point> HeldPlaces::nextRelease() const
{
    const auto next = std::min_element(places_.begin(), places_.end(), [](const Place& first, const Place& second) {
        return first.until < second.until;
    });
    return next == places_.end() ? std::nullopt : std::optional(next->until);
}

} // namespace nimbrale::x11
