#pragma once

#include "platform/x11/layers/draw_target.h"
#include "platform/x11/layers/drawing_resources.h"
#include "platform/x11/layers/layer_items.h"
#include "platform/x11/layers/layer_painting.h"
#include "platform/x11/server/pixel_region.h"

#include <QImage>

#include <vector>

namespace nimbrale::x11 {

/// A painted rectangle of a window, still on this side. Valid until the uploader's next batch but one.
struct PaintedPiece {
    PixelRect pixels;
    QImage image;
};

/// Draws parts of layers, by the server wherever it has what it takes. Regions are in pixels of the panel's window; a
/// target's origin says where they lie in it. Main thread only.
class LayerDrawing {
public:
    /// `resources` must outlive it.
    explicit LayerDrawing(DrawingResources& resources);
    ~LayerDrawing();
    LayerDrawing(const LayerDrawing&) = delete;
    LayerDrawing& operator=(const LayerDrawing&) = delete;

    /// Pixels per point.
    void setScale(double scale) { scale_ = scale; }

    /// Replaces what is there.
    void fill(DrawTarget& target, const PixelRegion& region, const Color& color);
    void draw(DrawTarget& target, const LayerItem& item, const PixelRegion& region);
    void copy(const DrawTarget& from, DrawTarget& to, const PixelRegion& region);

    /// Paints items in this process, back to front, over transparency.
    [[nodiscard]] std::vector<PaintedPiece> paint(const std::vector<LayerItem>& items,
                                                  const std::vector<PixelRect>& pieces);
    /// Replaces the rectangles by what was painted; nothing more may be put from the pieces then.
    void put(DrawTarget& target, const std::vector<PaintedPiece>& pieces);

    /// A pixmap of at least that size whose contents are whatever was there, for the target's format.
    [[nodiscard]] DrawTarget& scratchFor(const DrawTarget& target, const PixelRect& pixels);
    /// Lets go of what belongs to surfaces that none of the items shows.
    void forgetSurfacesExceptOf(const std::vector<LayerItem>& items);

private:
    void drawBackground(DrawTarget& target, const LayerItem& item, const PixelRegion& region);
    void drawContents(DrawTarget& target, const LayerItem& item, const PixelRegion& region);
    void drawPainting(DrawTarget& target, const LayerItem& item, const PixelRegion& region);
    void drawGroup(DrawTarget& target, const LayerItem& item, const PixelRegion& region);
    /// Through the item's shape and opacity. Pixel (x, y) of the window shows `picture`'s at (x - fromX, y - fromY).
    void composite(DrawTarget& target, const LayerItem& item, const PixelRegion& region, xcb_render_picture_t picture,
                   int fromX, int fromY);
    [[nodiscard]] DrawTarget& uploaded(const PaintedPiece& piece);

    DrawingResources& resources_;
    Connection& connection_;
    LayerPainter painter_;
    double scale_ = 1;
    int groupLevel_ = 0;
};

} // namespace nimbrale::x11
