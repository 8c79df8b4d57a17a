#include "platform/x11/layers/layer_items.h"

#include <cmath>

namespace nimbrale::x11 {

namespace {

constexpr double arithmeticSlack = 1e-6;

PixelRect nearestPixels(const Rect& points, double scale)
{
    const int left = int(std::lround(points.minX() * scale));
    const int top = int(std::lround(points.minY() * scale));
    return {left, top, int(std::lround(points.maxX() * scale)) - left, int(std::lround(points.maxY() * scale)) - top};
}

void flatten(const Layer& layer, Point origin, double opacity, double scale, std::vector<LayerItem>& items)
{
    opacity *= layer.opacity();
    if (layer.isHidden() || opacity <= 0)
        return;
    const Rect frame{origin.x, origin.y, layer.frame().width, layer.frame().height};
    const PixelRect pixels = nearestPixels(frame, scale);
    if (layer.backgroundColor() && layer.backgroundColor()->alpha > 0)
        items.push_back({LayerItemKind::background, &layer, origin, pixels, {pixels}, opacity});
    if (layer.contents())
        items.push_back({LayerItemKind::contents, &layer, origin, pixels, {pixels}, opacity});
    if (layer.painter()) {
        std::vector<PixelRect> parts;
        for (const Rect& part : layer.coverage())
            parts.push_back(outwardPixels(part.movedBy(origin.x, origin.y), scale));
        items.push_back({LayerItemKind::painting, &layer, origin, pixels, std::move(parts), opacity});
    }
    for (const Layer* const sublayer : layer.sublayersInOrder())
        flatten(*sublayer, {origin.x + sublayer->frame().x, origin.y + sublayer->frame().y}, opacity, scale, items);
}

} // namespace

PixelRegion LayerItem::region() const
{
    PixelRegion region;
    for (const PixelRect& part : parts)
        region.add(part);
    return region;
}

bool LayerItem::isOpaque() const
{
    if (opacity < 1 || kind == LayerItemKind::painting)
        return false;
    return kind == LayerItemKind::contents || layer->backgroundColor()->alpha >= 1;
}

std::vector<LayerItem> flattenLayers(const Layer& root, double scale)
{
    std::vector<LayerItem> items;
    // The root fills its window whatever its frame's origin says.
    flatten(root, {0, 0}, 1, scale, items);
    return items;
}

PixelRect outwardPixels(const Rect& points, double scale)
{
    if (points.isEmpty())
        return {};
    const int left = int(std::floor(points.minX() * scale + arithmeticSlack));
    const int top = int(std::floor(points.minY() * scale + arithmeticSlack));
    const int right = int(std::ceil(points.maxX() * scale - arithmeticSlack));
    const int bottom = int(std::ceil(points.maxY() * scale - arithmeticSlack));
    return {left, top, right - left, bottom - top};
}

} // namespace nimbrale::x11
