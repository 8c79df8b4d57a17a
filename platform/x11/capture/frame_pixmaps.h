#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"
#include "platform/x11/server/pixel_region.h"
#include "platform/x11/surfaces/x11_surface.h"

#include <functional>
#include <memory>
#include <vector>

namespace nimbrale::x11 {

/// The pixmaps that the frames of one stream are drawn in, all of one size. A pixmap is not drawn into while anybody
/// holds a frame in it, so that a few take turns; what one of them missed meanwhile is copied from the newest. Thread
/// of its connection only; frames may be let go of on any thread.
class FramePixmaps {
public:
    struct Pixmap {
        std::shared_ptr<SharedPixmap> storage;
        OwnedPicture picture;
        /// Where it is not as the newest.
        PixelRegion stale;
    };

    /// `release` frees a pixmap that nobody uses any more.
    FramePixmaps(Connection& connection, std::function<void(xcb_pixmap_t)> release);

    /// The next frame is drawn whole where the size is another.
    void setSize(int width, int height);
    /// A pixmap that shows what the newest one does, but for `changed`, which is to be drawn now. It is the newest from
    /// then on.
    [[nodiscard]] const Pixmap& begin(const PixelRegion& changed);

private:
    [[nodiscard]] std::unique_ptr<Pixmap> make() const;
    [[nodiscard]] Pixmap& findFree();
    void bringUpToDate(Pixmap& pixmap, const PixelRegion& changed) const;
    void dropSpares();
    [[nodiscard]] static bool isFree(const Pixmap& pixmap) { return pixmap.storage.use_count() == 1; }

    Connection& connection_;
    std::function<void(xcb_pixmap_t)> release_;
    OwnedGraphicsContext context_;
    int width_ = 0;
    int height_ = 0;
    std::vector<std::unique_ptr<Pixmap>> pixmaps_;
    Pixmap* newest_ = nullptr;
};

} // namespace nimbrale::x11
