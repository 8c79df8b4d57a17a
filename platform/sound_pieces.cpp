#include "platform/sound_pieces.h"

#include <algorithm>
#include <iterator>

namespace nimbrale {

std::shared_ptr<const AudioBuffer> playableSound(std::span<const float> samples, int channels, std::size_t skipped)
{
    const std::span<const float> left = samples.subspan(skipped * static_cast<std::size_t>(channels));
    auto audio = std::make_shared<AudioBuffer>();
    audio->channels = channels;
    audio->samples.reserve(left.size());
    std::ranges::transform(left, std::back_inserter(audio->samples),
                           [](float sample) { return std::clamp(sample, -1.0F, 1.0F); });
    return audio;
}

} // namespace nimbrale
