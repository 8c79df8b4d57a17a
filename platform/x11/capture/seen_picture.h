#pragma once

#include "platform/x11/capture/region_composer.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"

namespace nimbrale::x11 {

/// The pixmap that holds what was seen last where a stream's mask is, as large as the root. The server takes memory
/// only for the parts that were drawn. Thread of its connection only.
class SeenPicture {
public:
    /// `connection` must outlive it.
    explicit SeenPicture(Connection& connection);

    /// For drawing into; keeps what is there when the root has another size than before.
    [[nodiscard]] CompositionTarget target(const PixelRect& rootBounds);
    /// Gives back what it holds.
    void clear();

private:
    void resize(const PixelRect& rootBounds);

    Connection& connection_;
    OwnedGraphicsContext context_;
    OwnedPixmap pixmap_;
    OwnedPicture picture_;
    PixelRect bounds_;
};

} // namespace nimbrale::x11
