#include "platform/pulseaudio/sound_clock.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace nimbrale::pulseaudio {

namespace {

constexpr std::int64_t comparedSamples = soundSamplesPerSecond * SoundClock::comparedSpan.count() / std::milli::den;

} // namespace

std::optional<SoundPlace> SoundClock::place(std::chrono::nanoseconds measured, std::size_t samples)
{
    const auto count = static_cast<std::int64_t>(samples);
    if (!origin_) {
        origin_ = measured;
        counted_ = 0;
        isRestarted_ = false;
    }
    const std::chrono::nanoseconds position = end() - soundDuration(overlap_);
    const std::chrono::nanoseconds change = correction(measured - position, count);
    if (change != std::chrono::nanoseconds::zero())
        moveTo(position + change);
    const std::int64_t skipped = std::min(overlap_, count);
    overlap_ -= skipped;
    if (skipped == count)
        return std::nullopt;
    const SoundPlace place{end(), static_cast<std::size_t>(skipped)};
    counted_ += count - skipped;
    return place;
}

std::chrono::nanoseconds SoundClock::end() const
{
    return origin_.value_or(std::chrono::nanoseconds{}) + soundDuration(counted_);
}

/// By how much the next piece is to be moved.
std::chrono::nanoseconds SoundClock::correction(std::chrono::nanoseconds error, std::int64_t samples)
{
    const bool isAnother = std::exchange(isRestarted_, false);
    if (isAnother || std::chrono::abs(error) > largestWavering) {
        comparisons_.clear();
        compared_ = 0;
        return std::chrono::abs(error) > tolerance ? error : std::chrono::nanoseconds::zero();
    }
    comparisons_.push_back({error, samples});
    compared_ += samples;
    if (compared_ < comparedSamples)
        return {};
    std::vector<std::chrono::nanoseconds> errors;
    for (const Comparison& comparison : comparisons_)
        errors.push_back(comparison.error);
    const auto middle = errors.begin() + static_cast<std::ptrdiff_t>(errors.size() / 2);
    std::ranges::nth_element(errors, middle);
    compared_ -= comparisons_.front().samples;
    comparisons_.pop_front();
    if (std::chrono::abs(*middle) <= tolerance)
        return {};
    // What was measured before the correction says nothing of what is counted after it.
    comparisons_.clear();
    compared_ = 0;
    return *middle;
}

/// The next piece begins at that time.
void SoundClock::moveTo(std::chrono::nanoseconds time)
{
    const std::chrono::nanoseconds gap = time - end();
    overlap_ = 0;
    if (gap < std::chrono::nanoseconds::zero()) {
        overlap_ = -gap.count() * soundSamplesPerSecond / std::nano::den;
        return;
    }
    origin_ = time;
    counted_ = 0;
}

} // namespace nimbrale::pulseaudio
