#pragma once

#include "platform/x11/layers/layer_items.h"

#include <QImage>

#include <vector>

namespace nimbrale::x11 {

/// Whether all that the item shows is in this process's memory.
[[nodiscard]] bool isPaintable(const LayerItem& item);
/// Whether it shows a surface.
[[nodiscard]] bool showsContents(const LayerItem& item);

/// Paints items in this process. Keeps what the next picture of the same layers needs again. Main thread only.
class LayerPainter {
public:
    /// Paints items, back to front, over a premultiplied image of 32 bits, transparent so far, whose top-left pixel is
    /// (`x`, `y`) of the window. `scale` is pixels per point. All of them must be paintable.
    void paint(QImage& image, int x, int y, const std::vector<LayerItem>& items, double scale);

private:
    void paintPlainly(QImage& image, int x, int y, const LayerItem& item, double scale);
    void paintInCorners(QImage& image, int x, int y, const LayerItem& item, double scale);
    void keepInsideOfCorners(QImage& image, int x, int y, const LayerItem& item);

    QImage mask_; ///< of the corners that were rounded last
    double maskRadius_ = 0;
};

} // namespace nimbrale::x11
