#include "platform/pipewire/sound_ring.h"

#include <algorithm>

namespace nimbrale::pipewire {

bool SoundRing::write(std::chrono::nanoseconds time, int channels, std::span<const float> samples)
{
    const std::size_t count = written_.load(std::memory_order_relaxed);
    if (count - read_.load(std::memory_order_acquire) == pieceCount ||
        samplesWritten_ - samplesRead_.load(std::memory_order_acquire) + samples.size() > sampleCount)
        return false;
    const std::size_t begin = samplesWritten_ % sampleCount;
    const std::size_t first = std::min(samples.size(), sampleCount - begin);
    std::copy_n(samples.begin(), first, samples_.begin() + static_cast<std::ptrdiff_t>(begin));
    std::copy(samples.begin() + static_cast<std::ptrdiff_t>(first), samples.end(), samples_.begin());
    entries_[count % pieceCount] = {time, channels, samplesWritten_, samples.size()};
    samplesWritten_ += samples.size();
    written_.store(count + 1, std::memory_order_release);
    return true;
}

std::optional<RingPiece> SoundRing::read()
{
    const std::size_t count = read_.load(std::memory_order_relaxed);
    if (count == written_.load(std::memory_order_acquire))
        return std::nullopt;
    const Entry& entry = entries_[count % pieceCount];
    RingPiece piece{entry.time, entry.channels, std::vector<float>(entry.size)};
    const std::size_t begin = entry.begin % sampleCount;
    const std::size_t first = std::min(entry.size, sampleCount - begin);
    std::copy_n(samples_.begin() + static_cast<std::ptrdiff_t>(begin), first, piece.samples.begin());
    std::copy_n(samples_.begin(), entry.size - first, piece.samples.begin() + static_cast<std::ptrdiff_t>(first));
    samplesRead_.store(entry.begin + entry.size, std::memory_order_release);
    read_.store(count + 1, std::memory_order_release);
    return piece;
}

} // namespace nimbrale::pipewire
