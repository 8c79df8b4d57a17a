#include "platform/pipewire/sound_timeline.h"

namespace nimbrale::pipewire {

std::chrono::nanoseconds plausibleTime(std::chrono::nanoseconds measured, std::chrono::nanoseconds now,
                                       std::size_t samples)
{
    const bool isPlausible = measured <= now && measured >= now - longestSoundDelay;
    return isPlausible ? measured : now - soundDuration(static_cast<std::int64_t>(samples));
}

std::optional<SoundPlace> SoundTimeline::place(std::chrono::nanoseconds measured, std::size_t samples)
{
    const auto count = static_cast<std::int64_t>(samples);
    const std::chrono::nanoseconds expected = end();
    if (!origin_ || measured - expected > tolerance) {
        origin_ = measured;
        counted_ = count;
        return SoundPlace{measured, 0};
    }
    std::int64_t overlap = 0;
    if (expected - measured > tolerance)
        overlap = (expected - measured).count() * soundSamplesPerSecond / std::nano::den;
    if (overlap >= count)
        return std::nullopt;
    counted_ += count - overlap;
    return SoundPlace{expected, static_cast<std::size_t>(overlap)};
}

std::chrono::nanoseconds SoundTimeline::end() const
{
    return origin_.value_or(std::chrono::nanoseconds{}) + soundDuration(counted_);
}

} // namespace nimbrale::pipewire
