#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"
#include "platform/x11/server/pixel_region.h"
#include "platform/x11/surfaces/x11_surface.h"

#include <functional>
#include <memory>
#include <vector>

namespace nimbrale::x11 {

/// Where the pixels of frames lie.
enum class FrameMemory {
    server,
    shared ///< in the process too, where the server lets pixmaps lie in shared memory and has the process's pixels
};

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
        /// Which scene it shows.
        int scene = 0;
        /// Whether nobody held it at the last `begin` either.
        bool wasFree = false;
    };

    /// `release` frees a pixmap that nobody uses any more.
    FramePixmaps(Connection& connection, FrameMemory memory, std::function<void(xcb_pixmap_t)> release);

    /// The next frame is drawn whole where the size is another.
    void setSize(int width, int height);
    /// The next frame shows something else altogether, such as another place. What a consumer was told to draw from a
    /// frame before may still be on its way to the server when it lets go of the frame; of the same scene it would draw
    /// what is newer, but of another it must not: such a pixmap rests for one more frame.
    void beginScene() { ++scene_; }
    /// What was drawn last; null where that was of another size.
    [[nodiscard]] std::shared_ptr<SharedPixmap> newest() const { return newest_ ? newest_->storage : nullptr; }
    /// A pixmap that shows what the newest one does, but for `changed`, which is to be drawn now. It is the newest from
    /// then on.
    [[nodiscard]] const Pixmap& begin(const PixelRegion& changed);
    /// Whether there is a pixmap that only waits for its turn, and the end of such ones.
    [[nodiscard]] bool hasSpares() const;
    void dropSpares() { keepSpares(0); }

private:
    [[nodiscard]] std::unique_ptr<Pixmap> make();
    [[nodiscard]] std::shared_ptr<SharedPixmap> makeStorage();
    [[nodiscard]] std::shared_ptr<SharedPixmap> makeSharedStorage() const;
    [[nodiscard]] Pixmap& findUsable();
    void bringUpToDate(Pixmap& pixmap, const PixelRegion& changed) const;
    void keepSpares(int most);
    [[nodiscard]] static bool isFree(const Pixmap& pixmap) { return pixmap.storage.use_count() == 1; }
    [[nodiscard]] bool isSpare(const Pixmap& pixmap) const { return &pixmap != newest_ && isFree(pixmap); }
    [[nodiscard]] bool isUsable(const Pixmap& pixmap) const
    {
        return isFree(pixmap) && (pixmap.wasFree || pixmap.scene == scene_);
    }

    Connection& connection_;
    FrameMemory memory_;
    std::function<void(xcb_pixmap_t)> release_;
    OwnedGraphicsContext context_;
    int width_ = 0;
    int height_ = 0;
    int scene_ = 0;
    std::vector<std::unique_ptr<Pixmap>> pixmaps_;
    Pixmap* newest_ = nullptr;
};

} // namespace nimbrale::x11
