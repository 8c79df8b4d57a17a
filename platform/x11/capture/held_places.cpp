#include "platform/x11/capture/held_places.h"

#include <algorithm>

namespace nimbrale::x11 {

void HeldPlaces::add(const PixelRegion& place, Clock::time_point now, const Hold& hold)
{
    if (place.isEmpty())
        return;
    add({place, now, now + hold.time, now + hold.time + hold.patience, hold.patience, hold});
}

void HeldPlaces::add(const HeldPlaces& other)
{
    for (const Place& place : other.places_)
        add(place);
}

void HeldPlaces::add(const Place& place)
{
    // A window tells of many changes in a row without leaving its place.
    const auto known = std::find_if(places_.begin(), places_.end(), [&](const Place& each) {
        return each.isFading() == place.isFading() && each.region == place.region;
    });
    if (known != places_.end()) {
        known->left = std::max(known->left, place.left);
        known->until = std::max(known->until, place.until);
        known->untilUnproven = std::max(known->untilUnproven, place.untilUnproven);
        known->patience = std::max(known->patience, place.patience);
        return;
    }
    places_.push_back(place);
    region_ |= place.region;
}

void HeldPlaces::beginFades(Clock::time_point now, Clock::time_point proven)
{
    for (Place& place : places_) {
        if (!place.isFading() || place.left > proven)
            continue;
        place.left = place.until = now + place.fading.fade;
        place.untilUnproven = place.until + place.patience;
        place.fading = {};
    }
}

void HeldPlaces::extendPatience(Clock::time_point now, Clock::duration idle)
{
    for (Place& place : places_) {
        // It may have been left in the middle of that time.
        if (place.patience > std::chrono::milliseconds(0))
            place.untilUnproven += std::clamp(now - place.left, Clock::duration(0), idle);
    }
}

void HeldPlaces::release(Clock::time_point now, const Progress& progress)
{
    const Clock::time_point proven = progress.proven;
    extendPatience(now, progress.idle);
    beginFades(now, proven);
    const auto isDue = [&](const Place& place) {
        return now >= place.untilUnproven || (!place.isFading() && now >= place.until && place.left <= proven);
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

std::optional<HeldPlaces::Clock::time_point> HeldPlaces::requiredProof(Clock::time_point now) const
{
    std::optional<Clock::time_point> last;
    for (const Place& place : places_) {
        if (place.left <= now)
            last = std::max(last, std::optional(place.left));
    }
    return last;
}

std::optional<HeldPlaces::Clock::time_point> HeldPlaces::nextRelease() const
{
    std::optional<Clock::time_point> next;
    for (const Place& place : places_) {
        const Clock::time_point due = place.isFading() ? place.left : place.until;
        next = std::min(next.value_or(due), due);
    }
    return next;
}

} // namespace nimbrale::x11
