#pragma once

#include "platform/pixel_rect.h"
#include "platform/x11/capture/pointer_image.h"
#include "platform/x11/capture/root_background.h"
#include "platform/x11/capture/window_stack.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/pixel_region.h"
#include "platform/x11/surfaces/x11_surface.h"

#include <functional>
#include <memory>
#include <optional>

namespace nimbrale::x11 {

/// Where the pointer is drawn.
struct PointerPlace {
    int rootX = 0;
    int rootY = 0;
};

/// What a composition is made from; all of one connection.
struct DesktopParts {
    const WindowStack& stack;
    const RootBackground& background;
    const PointerImage& pointer;
    Compositing compositing = Compositing::absent;
};

/// Composes a rectangle of the desktop in a pixmap of the server, only where something changed. No pixel enters this
/// process. Thread of its connection only.
class RegionComposer {
public:
    using WindowTest = std::function<bool(const CapturedWindow&)>;

    /// `releasePixmap` frees a pixmap that nobody uses any more.
    RegionComposer(Connection& connection, std::function<void(xcb_pixmap_t)> releasePixmap);
    ~RegionComposer();
    RegionComposer(const RegionComposer&) = delete;
    RegionComposer& operator=(const RegionComposer&) = delete;

    /// The rectangle (root pixels) to compose from now on. Another one starts another pixmap, of which nothing is drawn
    /// yet: pictures of the place before keep theirs for as long as somebody shows them.
    void setSource(const PixelRect& source);
    [[nodiscard]] const PixelRect& source() const { return source_; }

    /// Draws `dirty` (root pixels, within the source) anew: windows that pass `isIncluded` from the top down, each
    /// pixel once, then the background, then translucent windows and the pointer over it.
    void compose(const PixelRegion& dirty, const DesktopParts& parts, const WindowTest& isIncluded,
                 std::optional<PointerPlace> pointer);
    /// Copies `dirty` from what the root shows, own windows and all: for servers without COMPOSITE.
    void copyRoot(const PixelRegion& dirty, const PointerImage& image, std::optional<PointerPlace> pointer);

    [[nodiscard]] const std::shared_ptr<SharedPixmap>& pixmap() const { return canvas_.pixmap; }

private:
    struct Canvas {
        std::shared_ptr<SharedPixmap> pixmap;
        xcb_render_picture_t picture = XCB_NONE;
    };

    [[nodiscard]] Canvas makeCanvas() const;
    void release(Canvas& canvas);
    void paint(const CapturedWindow& window, const PixelRegion& clip, bool isOver);
    void paintBackground(const PixelRegion& clip, const RootBackground& background);
    void paintRoot(const PixelRegion& clip, xcb_window_t standIn);
    void paintPointer(const PixelRegion& dirty, const PointerImage& image, const PointerPlace& place);
    void clipTo(const PixelRegion& region);

    Connection& connection_;
    std::function<void(xcb_pixmap_t)> releasePixmap_;
    PixelRect source_;
    Canvas canvas_;
    /// Of the place before: it comes in use again once nobody shows it any more.
    Canvas spare_;
    xcb_gcontext_t context_ = XCB_NONE;
    xcb_gcontext_t inferiorsContext_ = XCB_NONE;
};

} // namespace nimbrale::x11
