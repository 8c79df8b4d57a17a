#include "platform/pulseaudio/sound_clock.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace nimbrale::pulseaudio {

namespace {

constexpr std::int64_t samplesOf(std::chrono::milliseconds span)
{
    return soundSamplesPerSecond * span.count() / std::milli::den;
}

constexpr std::int64_t comparedSamples = samplesOf(SoundClock::comparedSpan);
constexpr std::int64_t fineSamples = samplesOf(SoundClock::fineSpan);

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
        forgetComparisons();
        isConfirmed_ = false;
        return std::chrono::abs(error) > tolerance ? error : std::chrono::nanoseconds::zero();
    }
    compare(error, samples);
    const std::chrono::nanoseconds agreed = agreedError();
    // What was measured before the correction says nothing of what is counted after it.
    if (agreed != std::chrono::nanoseconds::zero())
        forgetComparisons();
    return agreed;
}

/// Keeps as many comparisons as the longer span needs.
void SoundClock::compare(std::chrono::nanoseconds error, std::int64_t samples)
{
    comparisons_.push_back({error, samples});
    compared_ += samples;
    while (compared_ - comparisons_.front().samples >= fineSamples) {
        compared_ -= comparisons_.front().samples;
        comparisons_.pop_front();
    }
}

/// Zero where the measured times agree with the counted ones, or are too few to say.
std::chrono::nanoseconds SoundClock::agreedError()
{
    if (compared_ < comparedSamples)
        return {};
    const std::chrono::nanoseconds recent = medianError(comparedSamples);
    const bool isFirst = !std::exchange(isConfirmed_, true);
    if (std::chrono::abs(recent) > (isFirst ? tolerance : coarseTolerance))
        return recent;
    if (compared_ < fineSamples)
        return {};
    const std::chrono::nanoseconds settled = medianError(fineSamples);
    return std::chrono::abs(settled) > tolerance ? settled : std::chrono::nanoseconds::zero();
}

/// Of the newest comparisons, as many as make up so many samples.
std::chrono::nanoseconds SoundClock::medianError(std::int64_t samples) const
{
    std::vector<std::chrono::nanoseconds> errors;
    for (auto newest = comparisons_.rbegin(); newest != comparisons_.rend() && samples > 0; ++newest) {
        errors.push_back(newest->error);
        samples -= newest->samples;
    }
    const auto middle = errors.begin() + static_cast<std::ptrdiff_t>(errors.size() / 2);
    std::ranges::nth_element(errors, middle);
    return *middle;
}

void SoundClock::forgetComparisons()
{
    comparisons_.clear();
    compared_ = 0;
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
