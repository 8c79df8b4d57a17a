#pragma once

#include "platform/buffer_surface.h"
#include "platform/picture_halving.h"

#include <algorithm>
#include <memory>

namespace nimbrale {

/// A picture that there is whole, with its sides halved so often.
inline std::shared_ptr<const BufferSurface> halved(const BufferSurface& picture, int halvings)
{
    const auto pixels = std::make_shared<PixelBuffer>(halvedLength(picture.width(), halvings),
                                                      halvedLength(picture.height(), halvings));
    const auto rowsOf = [&](int first, int count, std::byte* rows, std::size_t stride) {
        for (int y = first; y < first + count; ++y, rows += stride)
            std::copy_n(picture.pixels().row(y), picture.pixels().stride(), rows);
        return true;
    };
    static_cast<void>(PictureHalving().make(picture.width(), picture.height(), halvings, rowsOf, *pixels));
    return std::make_shared<BufferSurface>(pixels, picture.alpha());
}

} // namespace nimbrale
