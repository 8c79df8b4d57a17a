#pragma once

#include "platform/x11/layers/draw_target.h"
#include "platform/x11/layers/layer_items.h"
#include "platform/x11/server/pixel_region.h"
#include "platform/x11/surfaces/image_uploader.h"
#include "platform/x11/surfaces/surface_pictures.h"

#include <QImage>

#include <memory>
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
    /// `connection` must outlive it.
    explicit LayerDrawing(Connection& connection);

    /// Pixels per point.
    void setScale(double scale) { scale_ = scale; }

    /// Replaces what is there.
    void fill(DrawTarget& target, const PixelRegion& region, const Color& color);
    void draw(DrawTarget& target, const LayerItem& item, const PixelRegion& region);
    void copy(const DrawTarget& from, DrawTarget& to, const PixelRegion& region);

    /// Paints backgrounds and paintings, back to front, over transparency.
    [[nodiscard]] std::vector<PaintedPiece> paint(const std::vector<LayerItem>& items,
                                                  const std::vector<PixelRect>& pieces);
    /// Replaces the rectangles by what was painted; nothing more may be put from the pieces then.
    void put(DrawTarget& target, const std::vector<PaintedPiece>& pieces);

    /// A pixmap of at least that size whose contents are whatever was there, for the target's format.
    [[nodiscard]] DrawTarget& scratchFor(const DrawTarget& target, const PixelRect& pixels);
    /// Lets go of what belongs to surfaces that none of the items shows.
    void forgetSurfacesExceptOf(const std::vector<LayerItem>& items);

private:
    void drawContents(DrawTarget& target, const LayerItem& item, const PixelRegion& region);
    void drawBackground(DrawTarget& target, const LayerItem& item, const PixelRegion& region);
    void drawPainting(DrawTarget& target, const LayerItem& item, const PixelRegion& region);
    void composite(DrawTarget& target, const PaintedPiece& piece, std::uint8_t operation);
    void paintItem(QImage& image, const PixelRect& pixels, const LayerItem& item) const;
    [[nodiscard]] DrawTarget& grown(std::unique_ptr<DrawTarget>& pixmap, std::uint8_t depth,
                                    xcb_render_pictformat_t format, int width, int height);

    Connection& connection_;
    double scale_ = 1;
    ImageUploader uploader_;
    SurfacePictures surfaces_;
    std::unique_ptr<DrawTarget> scratch_;
    std::unique_ptr<DrawTarget> upload_;
};

} // namespace nimbrale::x11
