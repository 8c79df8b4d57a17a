#pragma once

#include "platform/pixel_rect.h"
#include "platform/x11/capture/frame_pixmaps.h"
#include "platform/x11/capture/output_scaling.h"
#include "platform/x11/capture/region_composer.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"
#include "platform/x11/server/pixel_region.h"

#include <functional>
#include <memory>

namespace nimbrale::x11 {

/// Draws the frames of one stream: composes what changed, and scales it in the server where the output has another size
/// than the source. Thread of its connection only.
class FrameRenderer {
public:
    struct Frame {
        std::shared_ptr<SharedPixmap> storage;
        /// Where it differs from the frame before, in its own pixels.
        PixelRegion changed;
    };
    /// A frame's pixels.
    struct Source {
        xcb_pixmap_t pixmap = XCB_NONE;
        /// What it shows, in root pixels.
        PixelRect area;
    };
    /// Draws the dirty region into the target. `before` is the frame before, with no pixmap where there is none.
    using Compose = std::function<void(RegionComposer&, const CompositionTarget&, const Source& before)>;

    /// `connection` must outlive it; `releasePixmap` frees a pixmap that nobody uses any more. `memory` is where the
    /// frames lie.
    FrameRenderer(Connection& connection, FrameMemory memory, std::function<void(xcb_pixmap_t)> releasePixmap);
    FrameRenderer(const FrameRenderer&) = delete;
    FrameRenderer& operator=(const FrameRenderer&) = delete;

    /// The frames show `source` (root pixels) in so many pixels from now on. The next one has to be drawn whole when
    /// any of it differs from before.
    void setGeometry(const PixelRect& source, int outputWidth, int outputHeight, OutputFit fit);
    [[nodiscard]] RegionComposer& composer() { return composer_; }
    /// The frame that differs from the one before in `dirty` (root pixels, within the source).
    [[nodiscard]] Frame draw(const PixelRegion& dirty, const Compose& compose);
    /// Whether there is memory that is only kept for the next frames, and the end of it.
    [[nodiscard]] bool hasSpares() const { return frames_.hasSpares() || unscaled_.hasSpares(); }
    void dropSpares();

private:
    const FramePixmaps::Pixmap& compose(FramePixmaps& pixmaps, const PixelRegion& changed, const Compose& compose);
    void scale(const FramePixmaps::Pixmap& output, const PixelRegion& changed);
    void paintBars(const FramePixmaps::Pixmap& output);
    void prepareStretching(const SharedPixmap& source);

    Connection& connection_;
    RegionComposer composer_;
    PixelRect source_;
    /// Of the last frame.
    PixelRect sourceBefore_;
    OutputScaling scaling_;
    /// Whether the next frame has bars beside its picture that the one before has not.
    bool areBarsDue_ = false;
    /// What is delivered.
    FramePixmaps frames_;
    /// What is scaled: in the source's size, and never delivered. Unused where nothing is scaled.
    FramePixmaps unscaled_;
    /// The pixmap that is scaled, as the output's pixels see it.
    OwnedPicture stretched_;
    std::uint64_t stretchedStorage_ = 0;
};

} // namespace nimbrale::x11
