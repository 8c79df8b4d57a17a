#pragma once

#include "recording/audio_mixer.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace nimbrale {

constexpr std::chrono::nanoseconds start = std::chrono::seconds{1000};
constexpr std::size_t margin = 14400;

/// Sound of one level.
inline AudioBuffer sound(std::size_t frames, float level = 0.25F, int channels = 2)
{
    return {.channels = channels, .samples = std::vector<float>(frames * static_cast<std::size_t>(channels), level)};
}

/// When a sample of the track is, cut off to a nanosecond and then up to the next, as who counts samples tells it.
inline std::chrono::nanoseconds timeOf(std::int64_t sample)
{
    return start + std::chrono::nanoseconds{(sample * 1'000'000'000 + 47'999) / 48'000};
}

/// A mixer that knows when its track starts.
inline AudioMixer started()
{
    AudioMixer mixer;
    mixer.startTime = start;
    return mixer;
}

/// All that is left in it.
inline std::vector<float> flushed(AudioMixer& mixer)
{
    const auto output = mixer.output(true);
    return output ? output->audio.samples : std::vector<float>{};
}

} // namespace nimbrale
