#pragma once

#include <spa/buffer/buffer.h>
#include <span>

namespace nimbrale::pipewire {

/// The whole samples, interleaved, that a stream's buffer brings, within the memory that it has; empty where there are
/// none that can be read. They lie in memory that another program writes. Any thread; takes no lock and no memory.
[[nodiscard]] std::span<const float> samplesIn(const spa_buffer& buffer, int channels);

} // namespace nimbrale::pipewire
