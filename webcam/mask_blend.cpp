#include "webcam/mask_blend.h"

#include "platform/pixel_buffer.h"
#include "platform/vector_clones.h"
#include "webcam/background_blur.h"

namespace nimbrale {
namespace {

constexpr std::size_t channels = PixelBuffer::bytesPerPixel;
constexpr int one = BackgroundBlur::one;

/// The nearest byte.
inline std::uint8_t byteOf(int value)
{
    return static_cast<std::uint8_t>(static_cast<std::int16_t>(value + one / 2) >> 6);
}

} // namespace

// Each of these loops is one that compilers turn into instructions on eight values of 16 bits and more. Twice a value
// of the background's scale still fits into 16 bits, and so the upper half of its product with the mask is the part
// wanted.

NIMBRALE_VECTOR_CLONES void MaskBlend::overBackground(std::span<const std::byte> picture,
                                                      std::span<const std::int16_t> mask,
                                                      std::span<const std::int16_t> background,
                                                      std::span<std::byte> result)
{
    spreadMask(mask);
    const auto* __restrict from = reinterpret_cast<const std::uint8_t*>(picture.data());
    const std::uint8_t* __restrict opaque = opaque_.data();
    const std::int16_t* __restrict behind = background.data();
    const std::int16_t* __restrict weights = weights_.data();
    auto* __restrict to = reinterpret_cast<std::uint8_t*>(result.data());
    for (std::size_t i = 0; i < picture.size(); ++i) {
        const auto difference = static_cast<std::int16_t>(((from[i] | opaque[i]) * one - behind[i]) * 2);
        to[i] = byteOf(behind[i] + static_cast<std::int16_t>((difference * weights[i]) >> 16));
    }
}

NIMBRALE_VECTOR_CLONES void MaskBlend::overNothing(std::span<const std::byte> picture,
                                                   std::span<const std::int16_t> mask, std::span<std::byte> result)
{
    spreadMask(mask);
    const auto* __restrict from = reinterpret_cast<const std::uint8_t*>(picture.data());
    const std::uint8_t* __restrict opaque = opaque_.data();
    const std::int16_t* __restrict weights = weights_.data();
    auto* __restrict to = reinterpret_cast<std::uint8_t*>(result.data());
    for (std::size_t i = 0; i < picture.size(); ++i) {
        const auto value = static_cast<std::uint16_t>((from[i] | opaque[i]) * one * 2);
        const std::uint32_t product = static_cast<std::uint32_t>(value) * static_cast<std::uint16_t>(weights[i]);
        to[i] = byteOf(static_cast<std::uint16_t>(product >> 16));
    }
}

NIMBRALE_VECTOR_CLONES void MaskBlend::spreadMask(std::span<const std::int16_t> mask)
{
    const std::size_t width = mask.size();
    if (weights_.size() != width * channels) {
        pairs_.resize(width * 2);
        weights_.resize(width * channels);
        opaque_.assign(width * channels, 0);
        for (std::size_t alpha = channels - 1; alpha < opaque_.size(); alpha += channels)
            opaque_[alpha] = 255;
    }
    const std::int16_t* __restrict values = mask.data();
    std::int16_t* __restrict pairs = pairs_.data();
    for (std::size_t x = 0; x < width; ++x)
        pairs[2 * x] = pairs[2 * x + 1] = values[x];
    std::int16_t* __restrict weights = weights_.data();
    for (std::size_t i = 0; i < width * 2; ++i)
        weights[2 * i] = weights[2 * i + 1] = pairs[i];
}

} // namespace nimbrale
