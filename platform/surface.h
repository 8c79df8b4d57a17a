#pragma once

#include "platform/pixel_rect.h"

#include <cstdint>
#include <vector>

namespace nimbrale {

/// One captured picture, shared by reference and never copied. Pictures of one stream usually share their storage: a
/// picture then says which part of that storage is new, so that whoever shows it need touch nothing else.
class Surface {
public:
    virtual ~Surface() = default;

    /// In pixels.
    [[nodiscard]] virtual int width() const = 0;
    [[nodiscard]] virtual int height() const = 0;
    /// Equal for pictures that share storage; never 0.
    [[nodiscard]] virtual std::uint64_t storage() const = 0;
    /// What differs from the picture delivered before it in the same storage; everything for the first one.
    [[nodiscard]] virtual const std::vector<PixelRect>& changed() const = 0;
};

} // namespace nimbrale
