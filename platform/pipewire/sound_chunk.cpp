#include "platform/pipewire/sound_chunk.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace nimbrale::pipewire {

std::span<const float> samplesIn(const spa_buffer& buffer, int channels)
{
    if (buffer.n_datas == 0 || !buffer.datas[0].data || !buffer.datas[0].chunk || channels <= 0)
        return {};
    const spa_data& data = buffer.datas[0];
    // Another program writes the chunk at any time: what was tested must be what is used, so each value is read once.
    const volatile spa_chunk* const chunk = data.chunk;
    const std::uint32_t offset = chunk->offset;
    const std::uint32_t written = chunk->size;
    if (offset >= data.maxsize)
        return {};
    const auto* const bytes = static_cast<const std::uint8_t*>(data.data) + offset;
    if (reinterpret_cast<std::uintptr_t>(bytes) % alignof(float) != 0)
        return {};
    const std::size_t size = std::min(written, data.maxsize - offset);
    const std::size_t frames = size / (sizeof(float) * static_cast<std::size_t>(channels));
    return {reinterpret_cast<const float*>(bytes), frames * static_cast<std::size_t>(channels)};
}

} // namespace nimbrale::pipewire
