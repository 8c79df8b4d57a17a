#pragma once

#include <cstdint>
#include <cstring>

namespace nimbrale {

// The four channels of a pixel in one register, for loops over pixels that compilers do not turn into such by
// themselves. They are computed with like numbers.

using ChannelSums [[gnu::vector_size(4 * sizeof(std::int32_t))]] = std::int32_t;
using ChannelValues [[gnu::vector_size(4 * sizeof(float))]] = float;

/// Four values of 16 bits without sign.
inline ChannelSums channelsAt(const std::uint16_t* values)
{
    using Shorts [[gnu::vector_size(16)]] = std::uint16_t;
    using Longs [[gnu::vector_size(16)]] = std::uint64_t;
    // As one number: compilers would bring shorter pieces together in memory.
    std::uint64_t all = 0;
    std::memcpy(&all, values, sizeof all);
    const auto shorts = reinterpret_cast<Shorts>(Longs{all, 0});
    return reinterpret_cast<ChannelSums>(__builtin_shufflevector(shorts, Shorts{}, 0, 8, 1, 9, 2, 10, 3, 11));
}

inline ChannelValues channelsAt(const float* values)
{
    ChannelValues channels;
    std::memcpy(&channels, values, sizeof channels);
    return channels;
}

inline void storeChannels(ChannelValues channels, float* values)
{
    std::memcpy(values, &channels, sizeof channels);
}

/// Values that fit into 16 bits.
inline void storeChannels(ChannelSums channels, std::int16_t* values)
{
    using Shorts [[gnu::vector_size(16)]] = std::int16_t;
    const auto shorts = reinterpret_cast<Shorts>(channels);
    const Shorts packed = __builtin_shufflevector(shorts, shorts, 0, 2, 4, 6, 0, 2, 4, 6);
    std::memcpy(values, &packed, 4 * sizeof(std::int16_t));
}

/// Values that fit into 8 bits without sign.
inline void storeChannels(ChannelSums channels, std::uint8_t* values)
{
    using Bytes [[gnu::vector_size(16)]] = std::uint8_t;
    const auto bytes = reinterpret_cast<Bytes>(channels);
    const Bytes packed = __builtin_shufflevector(bytes, bytes, 0, 4, 8, 12, 0, 4, 8, 12, 0, 4, 8, 12, 0, 4, 8, 12);
    std::memcpy(values, &packed, 4);
}

} // namespace nimbrale
