#pragma once

#include "platform/pixel_buffer.h"
#include "platform/result.h"
#include "platform/surface.h"

#include <vector>

namespace nimbrale {

/// Brings the pixels of captured surfaces into the process, for consumers that must see them: a recorder. Only what
/// changed since the picture read before travels, whether or not the pictures in between were read too.
///
/// Made on the main thread, then used and destroyed on one thread of the consumer's choice, never the capture's: `read`
/// waits for the pixels.
class SurfaceReader {
public:
    /// A picture in memory.
    struct Picture {
        /// All of it. Alpha is meaningless in the pixels of an opaque surface. Valid until the next read, as long as
        /// the reader lives and the surface is held.
        const PixelBuffer* pixels = nullptr;
        /// What was brought by this read, in pixels; everything else is as the read before left it. Rectangles do not
        /// overlap.
        std::vector<PixelRect> changed;
    };

    virtual ~SurfaceReader() = default;

    /// The pixels of `surface`, which the caller holds as long as it looks at them. Fails as temporary where the
    /// surface cannot be read, and as permanent when the connection to the desktop is gone; the read after a failure
    /// brings everything.
    [[nodiscard]] virtual Result<Picture> read(const Surface& surface) = 0;
};

} // namespace nimbrale
