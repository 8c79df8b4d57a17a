#pragma once

#include "platform/layer.h"
#include "platform/x11/server/pixel_region.h"

#include <vector>

namespace nimbrale::x11 {

enum class LayerItemKind { background, contents, painting };

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
    /// Its own and those of all layers that it lies in.
    double opacity = 1;

    [[nodiscard]] PixelRegion region() const;
    /// Hides everything behind its parts.
    [[nodiscard]] bool isOpaque() const;
};

/// The visible parts of a tree, back to front. `scale` is pixels per point.
[[nodiscard]] std::vector<LayerItem> flattenLayers(const Layer& root, double scale);

/// The smallest rectangle of whole pixels around a rectangle in points. What sticks out by no more than the inexactness
/// of the arithmetic does not count.
[[nodiscard]] PixelRect outwardPixels(const Rect& points, double scale);

} // namespace nimbrale::x11
