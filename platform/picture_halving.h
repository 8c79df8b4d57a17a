#pragma once

#include "platform/pixel_buffer.h"

#include <cstddef>
#include <functional>
#include <vector>

namespace nimbrale {

/// What is left of a side of `length` pixels after so many halvings, each of which rounds up.
[[nodiscard]] int halvedLength(int length, int halvings);

/// Makes pictures smaller while they are made, a few rows at a time: the processor still has these at hand, and the
/// picture in its own size never exists. A halving makes one pixel of four, their mean, each channel rounded to the
/// nearest; the last column or row of an odd side counts twice. One thread at a time.
class PictureHalving {
public:
    /// Writes so many rows of the picture, from `first` on, to `rows`, `stride` bytes apart. False where that fails.
    using RowSource = std::function<bool(int first, int count, std::byte* rows, std::size_t stride)>;

    /// Makes a picture of `width` × `height` pixels, halved so often, in `to`, which has the size that is left. Asks
    /// for all rows at once where nothing is halved, else from the top down, always from an even row on. False where
    /// the source failed, which is not asked again then.
    [[nodiscard]] bool make(int width, int height, int halvings, const RowSource& source, PixelBuffer& to);

private:
    void setSize(int width, int halvings);
    void halveBand(int count, std::byte* row);

    /// The rows that become one, and what is left of them after each halving but the last.
    std::vector<PixelBuffer> levels_;
};

} // namespace nimbrale
