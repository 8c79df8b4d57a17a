#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace nimbrale {

/// Blends rows of a picture with what lies behind the person. One thread at a time.
class MaskBlend {
public:
    /// `picture` and `result` are a row of BGRA bytes, `mask` one of `MaskFilter`; `background` is one of
    /// `BackgroundBlur`. The result is opaque.
    void overBackground(std::span<const std::byte> picture, std::span<const std::int16_t> mask,
                        std::span<const std::int16_t> background, std::span<std::byte> result);
    /// The result is premultiplied, and transparent where the mask is 0.
    void overNothing(std::span<const std::byte> picture, std::span<const std::int16_t> mask,
                     std::span<std::byte> result);

private:
    void spreadMask(std::span<const std::int16_t> mask);

    /// The mask's value for each byte of a row, and for every second one on the way there.
    std::vector<std::int16_t> weights_;
    std::vector<std::int16_t> pairs_;
    /// What makes a row's pixels opaque when it is added to their bits.
    std::vector<std::uint8_t> opaque_;
};

} // namespace nimbrale
