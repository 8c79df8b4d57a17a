#pragma once

#include "platform/pixel_rect.h"
#include "platform/x11/capture/captured_window.h"
#include "platform/x11/capture/pointer_image.h"
#include "platform/x11/capture/root_background.h"
#include "platform/x11/capture/unpainted_memory.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"
#include "platform/x11/server/pixel_region.h"

#include <functional>
#include <optional>

namespace nimbrale::x11 {

/// Where the pointer is drawn.
struct PointerPlace {
    int rootX = 0;
    int rootY = 0;
};

/// What a composition is made from; all of one connection.
struct DesktopParts {
    /// Bottom to top.
    const WindowList& windows;
    const RootBackground& background;
    const PointerImage& pointer;
    /// What of the windows is not drawn: there goes what is below them.
    const UnpaintedMemory& unpainted;
    Compositing compositing = Compositing::absent;
};

/// Where a composition goes: a pixmap whose top-left corner shows the root pixel `origin`.
struct CompositionTarget {
    xcb_pixmap_t pixmap = XCB_NONE;
    xcb_render_picture_t picture = XCB_NONE;
    PixelPoint origin;
};

/// Composes parts of the desktop in pixmaps of the server. No pixel enters this process. Thread of its connection only.
class RegionComposer {
public:
    using WindowTest = std::function<bool(const CapturedWindow&)>;

    /// `connection` must outlive it.
    explicit RegionComposer(Connection& connection);
    RegionComposer(const RegionComposer&) = delete;
    RegionComposer& operator=(const RegionComposer&) = delete;

    /// Draws `dirty` (root pixels, within the target) anew: windows that pass `isIncluded` from the top down, each
    /// pixel once, then the background, then translucent windows and the pointer over it. With `seen`,
    /// nothing is taken of what a compositing manager may draw without pixels of any window: frames, whose memory may
    /// still hold what the screen showed there, and a background that nobody names. Within `seen` that stays as it is,
    /// elsewhere it is black.
    void compose(const CompositionTarget& target, const PixelRegion& dirty, const DesktopParts& parts,
                 const WindowTest& isIncluded, std::optional<PointerPlace> pointer, const PixelRegion* seen = nullptr);
    /// Copies `dirty` from what the screen shows, own windows and all; black beyond the root's bounds.
    void copyScreen(const CompositionTarget& target, const PixelRegion& dirty, const PixelRect& rootBounds,
                    const PointerImage& image, std::optional<PointerPlace> pointer);
    /// Copies `dirty` from a pixmap whose top-left corner shows the root pixel `origin`.
    void copyPixmap(const CompositionTarget& target, const PixelRegion& dirty, xcb_pixmap_t pixmap, PixelPoint origin,
                    const PointerImage& image, std::optional<PointerPlace> pointer);

private:
    void paint(const CapturedWindow& window, const PixelRegion& clip, bool isOver);
    void paintFromScreen(const CapturedWindow& window, const PixelRegion& clip);
    void paintBackground(const PixelRegion& clip, const RootBackground& background);
    void paintRoot(const PixelRegion& clip, const RootBackground& background);
    void paintPointer(const PixelRegion& dirty, const PointerImage& image, const PointerPlace& place);
    void fillBlack(const PixelRegion& region);
    /// From a drawable whose top-left pixel shows the root pixel `origin`, and which may be gone.
    void copy(xcb_drawable_t from, PixelPoint origin, xcb_gcontext_t context, const PixelRegion& region);
    void copyArea(xcb_drawable_t from, PixelPoint origin, xcb_gcontext_t context, const PixelRect& area);
    /// Calls `draw` with a rectangle while the target's picture is clipped to the part of the region in it, until all
    /// of the region was in one.
    template <typename Draw>
    void drawClipped(const PixelRegion& region, Draw draw);

    Connection& connection_;
    CompositionTarget target_;
    OwnedGraphicsContext context_;
    OwnedGraphicsContext inferiorsContext_;
};

} // namespace nimbrale::x11
