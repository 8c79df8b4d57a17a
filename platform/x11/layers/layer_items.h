#pragma once

#include "platform/layer.h"
#include "platform/x11/server/pixel_region.h"

#include <optional>
#include <vector>

namespace nimbrale::x11 {

enum class LayerItemKind {
    background,
    contents,
    painting,
    group ///< items that are put together first and then drawn as one
};

/// One part of a layer as it lies in its host's window: what a drawing pass deals with. Valid until the tree changes.
struct LayerItem {
    LayerItemKind kind = LayerItemKind::background;
    const Layer* layer = nullptr;
    /// The layer's top-left corner in the root layer's points.
    Point origin;
    /// The layer in pixels of the window, its edges rounded to the nearest ones; may reach out of the window.
    PixelRect frame;
    /// Where the item may be other than transparent, in pixels of the window.
    std::vector<PixelRect> parts;
    /// What the layers around it leave of it; the parts lie in it.
    std::optional<PixelRect> clip;
    double opacity = 1;
    /// Of the frame, in pixels: what lies outside of the rounded rectangle is not drawn. 0 for a plain rectangle.
    double cornerRadius = 0;
    /// Of contents: where the whole surface lies, in pixels of the window.
    Rect contentsRect;
    /// Of a group, back to front.
    std::vector<LayerItem> members;

    [[nodiscard]] PixelRegion region() const;
    /// Hides everything behind its parts.
    [[nodiscard]] bool isOpaque() const;
    /// Whether every pixel of the surface lies on one of the window, be they flipped.
    [[nodiscard]] bool hasWholePixels() const;
    /// The same, unflipped.
    [[nodiscard]] bool isPixelForPixel() const;
};

/// The visible parts of a tree, back to front. `scale` is pixels per point.
[[nodiscard]] std::vector<LayerItem> flattenLayers(const Layer& root, double scale);

/// Adds what filters draw beyond the pixels that changed: a scaled picture mixes neighbouring pixels, so that what is
/// dirty in one reaches as far as the filter does.
void growByFilter(const std::vector<LayerItem>& items, PixelRegion& dirty);

/// The smallest rectangle of whole pixels around a rectangle in points. What sticks out by no more than the inexactness
/// of the arithmetic does not count.
[[nodiscard]] PixelRect outwardPixels(const Rect& points, double scale);

} // namespace nimbrale::x11
