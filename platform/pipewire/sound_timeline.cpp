#include "platform/pipewire/sound_timeline.h"

namespace nimbrale::pipewire {

namespace {

constexpr std::int64_t samplesPerSecond = 48000;
constexpr std::int64_t nanosecondsPerSecond = std::nano::den;

/// Rounded up to a whole nanosecond, so that whoever cuts off gets the sample's own number back.
std::chrono::nanoseconds durationOf(std::int64_t samples)
{
    const std::int64_t rest = samples % samplesPerSecond * nanosecondsPerSecond;
    return std::chrono::nanoseconds{samples / samplesPerSecond * nanosecondsPerSecond +
                                    (rest + samplesPerSecond - 1) / samplesPerSecond};
}

} // namespace

std::chrono::nanoseconds plausibleTime(std::chrono::nanoseconds measured, std::chrono::nanoseconds now,
                                       std::size_t samples)
{
    const bool isPlausible = measured <= now && measured >= now - longestSoundDelay;
    return isPlausible ? measured : now - durationOf(static_cast<std::int64_t>(samples));
}

std::optional<SoundTimeline::Place> SoundTimeline::place(std::chrono::nanoseconds measured, std::size_t samples)
{
    const auto count = static_cast<std::int64_t>(samples);
    const std::chrono::nanoseconds expected = end();
    if (!origin_ || measured - expected > tolerance) {
        origin_ = measured;
        counted_ = count;
        return Place{measured, 0};
    }
    std::int64_t overlap = 0;
    if (expected - measured > tolerance)
        overlap = (expected - measured).count() * samplesPerSecond / nanosecondsPerSecond;
    if (overlap >= count)
        return std::nullopt;
    counted_ += count - overlap;
    return Place{expected, static_cast<std::size_t>(overlap)};
}

std::chrono::nanoseconds SoundTimeline::end() const
{
    return origin_.value_or(std::chrono::nanoseconds{}) + durationOf(counted_);
}

} // namespace nimbrale::pipewire
