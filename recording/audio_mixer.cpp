#include "recording/audio_mixer.h"

#include "platform/log.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace nimbrale {

namespace {

constexpr std::int64_t samplesPerSecond = 48000;
constexpr std::int64_t nanosecondsPerSecond = std::nano::den;
/// 0.3 s, in which the slower source may arrive.
constexpr std::int64_t safetyMargin = samplesPerSecond * 3 / 10;

/// Cut off toward zero. Seconds and the rest apart, so that no product overflows and nothing is rounded.
std::int64_t samplesIn(std::chrono::nanoseconds duration)
{
    return duration.count() / nanosecondsPerSecond * samplesPerSecond +
           duration.count() % nanosecondsPerSecond * samplesPerSecond / nanosecondsPerSecond;
}

std::chrono::nanoseconds durationOf(std::int64_t samples)
{
    const std::int64_t rest = samples % samplesPerSecond * nanosecondsPerSecond;
    return std::chrono::nanoseconds{samples / samplesPerSecond * nanosecondsPerSecond +
                                    (rest + samplesPerSecond / 2) / samplesPerSecond};
}

bool isReadable(const AudioBuffer& audio)
{
    return audio.channels > 0 && !audio.samples.empty() &&
           audio.samples.size() % static_cast<std::size_t>(audio.channels) == 0;
}

/// What adds up to no number counts as silence: no encoder takes it.
float clamped(float sum)
{
    return std::isnan(sum) ? 0.0F : std::clamp(sum, -1.0F, 1.0F);
}

} // namespace

void AudioMixer::add(const AudioBuffer& audio, std::chrono::nanoseconds presentationTime)
{
    std::int64_t sinceStart = 0;
    // Times so far apart that their difference is no number are none.
    if (!startTime || !isReadable(audio) ||
        __builtin_sub_overflow(presentationTime.count(), startTime->count(), &sinceStart))
        return;
    const auto count = static_cast<std::int64_t>(audio.frameCount());
    const std::int64_t offset = samplesIn(std::chrono::nanoseconds{sinceStart});
    const std::int64_t skip = std::max<std::int64_t>(bufferStart_ - offset, 0);
    if (skip >= count || isTooFarAhead(offset))
        return;

    const auto end = static_cast<std::size_t>(offset - bufferStart_ + count);
    if (end > left_.size()) {
        left_.resize(end);
        right_.resize(end);
    }
    const int rightChannel = audio.channels > 1 ? 1 : 0;
    for (std::int64_t index = skip; index < count; ++index) {
        const auto place = static_cast<std::size_t>(offset - bufferStart_ + index);
        left_[place] += audio.sample(static_cast<std::size_t>(index), 0);
        right_[place] += audio.sample(static_cast<std::size_t>(index), rightChannel);
    }
    latestEnd_ = std::max(latestEnd_, offset + count);
}

bool AudioMixer::isTooFarAhead(std::int64_t offset)
{
    const std::int64_t ahead = offset - latestEnd_;
    if (ahead <= samplesIn(longestSilence))
        return false;
    if (!std::exchange(hasLoggedFarTime_, true))
        qCWarning(recordingLog, "Sound is left out, since its time is %lld seconds ahead.",
                  static_cast<long long>(ahead / samplesPerSecond));
    return true;
}

std::optional<AudioMixer::Output> AudioMixer::output(bool flush)
{
    if (!startTime)
        return std::nullopt;
    const std::int64_t limit = flush ? latestEnd_ : latestEnd_ - safetyMargin;
    const std::int64_t count = std::min(limit - bufferStart_, static_cast<std::int64_t>(left_.size()));
    if (count <= 0)
        return std::nullopt;

    Output output;
    output.presentationTime = *startTime + durationOf(bufferStart_);
    output.audio.samples.reserve(static_cast<std::size_t>(count) * 2);
    for (std::size_t index = 0; index < static_cast<std::size_t>(count); ++index) {
        output.audio.samples.push_back(clamped(left_[index]));
        output.audio.samples.push_back(clamped(right_[index]));
    }
    left_.erase(left_.begin(), left_.begin() + count);
    right_.erase(right_.begin(), right_.begin() + count);
    bufferStart_ += count;
    return output;
}

} // namespace nimbrale
