#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace nimbrale::pipewire {

/// A piece of sound as it lies in the ring.
struct RingPiece {
    std::chrono::nanoseconds time{}; ///< of its first sample
    int channels = 0;
    std::vector<float> samples; ///< interleaved
};

/// Hands pieces of sound from one thread, which takes no lock and no memory and never waits, to another one.
class SoundRing {
public:
    SoundRing() : samples_(sampleCount) {}
    SoundRing(const SoundRing&) = delete;
    SoundRing& operator=(const SoundRing&) = delete;

    /// False where there is no room, and then nothing of it is kept. The writing thread's.
    [[nodiscard]] bool write(std::chrono::nanoseconds time, int channels, std::span<const float> samples);
    /// The oldest piece, if there is any. The reading thread's.
    [[nodiscard]] std::optional<RingPiece> read();

private:
    /// Two seconds of two channels and more; a power of two.
    static constexpr std::size_t sampleCount = 1U << 18U;
    /// As many of the smallest pieces as are usual.
    static constexpr std::size_t pieceCount = 1024;

    struct Entry {
        std::chrono::nanoseconds time{};
        int channels = 0;
        std::size_t begin = 0; ///< counted from the first sample ever
        std::size_t size = 0;
    };

    std::array<Entry, pieceCount> entries_;
    std::vector<float> samples_;
    std::size_t samplesWritten_ = 0; ///< the writing thread's
    std::atomic<std::size_t> written_ = 0;
    std::atomic<std::size_t> read_ = 0;
    std::atomic<std::size_t> samplesRead_ = 0;
};

} // namespace nimbrale::pipewire
