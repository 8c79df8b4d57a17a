#pragma once

#include "platform/x11/layers/layer_items.h"

#include <QImage>

#include <vector>

namespace nimbrale::x11 {

/// Whether all that the item shows is in this process's memory.
[[nodiscard]] bool isPaintable(const LayerItem& item);
/// Whether it shows a surface.
[[nodiscard]] bool showsContents(const LayerItem& item);

/// Paints items, back to front, over a premultiplied image whose top-left pixel is (`x`, `y`) of the window. `scale` is
/// pixels per point. All of them must be paintable.
void paintItems(QImage& image, int x, int y, const std::vector<LayerItem>& items, double scale);

} // namespace nimbrale::x11
