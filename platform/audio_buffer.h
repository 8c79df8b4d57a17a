#pragma once

#include <cstddef>
#include <vector>

namespace nimbrale {

enum class AudioLayout {
    interleaved, ///< all channels of one moment, then all of the next
    planar       ///< one channel whole, then the next
};

/// A piece of sound. Samples lie between -1 and 1.
struct AudioBuffer {
    int sampleRate = 48000;
    int channels = 2;
    AudioLayout layout = AudioLayout::interleaved;
    std::vector<float> samples;

    /// How many moments it holds.
    [[nodiscard]] std::size_t frameCount() const
    {
        return channels > 0 ? samples.size() / static_cast<std::size_t>(channels) : 0;
    }
    /// Both must be within the buffer.
    [[nodiscard]] float sample(std::size_t frame, int channel) const
    {
        const auto column = static_cast<std::size_t>(channel);
        return layout == AudioLayout::planar ? samples[column * frameCount() + frame]
                                             : samples[frame * static_cast<std::size_t>(channels) + column];
    }
};

} // namespace nimbrale
