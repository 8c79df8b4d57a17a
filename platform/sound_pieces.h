#pragma once

#include "platform/audio_buffer.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace nimbrale {

/// Of what sources of sound hand out.
inline constexpr std::int64_t soundSamplesPerSecond = 48000;

/// How long so many samples are, rounded up to a whole nanosecond, so that whoever cuts off gets the sample's own
/// number back. Takes no lock and no memory.
[[nodiscard]] constexpr std::chrono::nanoseconds soundDuration(std::int64_t samples)
{
    constexpr std::int64_t nanosecondsPerSecond = std::nano::den;
    const std::int64_t rest = samples % soundSamplesPerSecond * nanosecondsPerSecond;
    return std::chrono::nanoseconds{samples / soundSamplesPerSecond * nanosecondsPerSecond +
                                    (rest + soundSamplesPerSecond - 1) / soundSamplesPerSecond};
}

/// Where a piece of sound belongs among those before it.
struct SoundPlace {
    /// Of the first sample that is left; never before the end of the piece before.
    std::chrono::nanoseconds time{};
    /// Samples at the beginning that overlap the piece before and are to be left out.
    std::size_t skipped = 0;
};

/// A piece of interleaved samples without the first `skipped` of each channel, none louder than loudest: what is comes
/// from software that amplifies.
[[nodiscard]] std::shared_ptr<const AudioBuffer> playableSound(std::span<const float> samples, int channels,
                                                               std::size_t skipped);

} // namespace nimbrale
