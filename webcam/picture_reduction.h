#pragma once

#include "geometry/picture_size.h"
#include "platform/buffer_surface.h"

#include <memory>
#include <vector>

namespace nimbrale {

/// Makes a camera's pictures smaller where they are shown smaller, so that no more pixels are handed on and drawn than
/// are seen, and none is passed over. One thread at a time.
class PictureReduction {
public:
    /// How often a picture that fills `shown`, in pixels, can be halved and still has as many pixels there; 0 while
    /// `shown` is empty.
    [[nodiscard]] static int halvings(PixelSize picture, PixelSize shown);

    /// The picture halved so often, each pixel the mean of four; itself for 0. What is odd is rounded up, with the
    /// last row or column counted twice.
    [[nodiscard]] std::shared_ptr<const BufferSurface> reduce(const std::shared_ptr<const BufferSurface>& picture,
                                                              int halvings);

private:
    /// Between the first halving and the last.
    std::vector<PixelBuffer> between_;
    BufferSurfacePool pool_;
};

} // namespace nimbrale
