#include "platform/x11/layers/layer_items.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace nimbrale::x11 {

namespace {

constexpr double arithmeticSlack = 1e-6;

PixelRect nearestPixels(const Rect& points, double scale)
{
    const int left = int(std::lround(points.minX() * scale));
    const int top = int(std::lround(points.minY() * scale));
    return {left, top, int(std::lround(points.maxX() * scale)) - left, int(std::lround(points.maxY() * scale)) - top};
}

/// A layer in the window, and the items made of it so far.
struct Flattened {
    LayerItem base;
    std::vector<LayerItem> items;
};

void clipItems(std::vector<LayerItem>& items, const PixelRect& clip)
{
    for (LayerItem& item : items) {
        item.clip = item.clip ? item.clip->intersectedWith(clip) : clip;
        for (PixelRect& part : item.parts)
            part = part.intersectedWith(clip);
        std::erase_if(item.parts, [](const PixelRect& part) { return part.isEmpty(); });
        clipItems(item.members, clip);
    }
    std::erase_if(items, [](const LayerItem& item) { return item.parts.empty(); });
}

/// One item that stands for all of them.
LayerItem groupOf(const LayerItem& base, std::vector<LayerItem> members)
{
    LayerItem group = base;
    group.kind = LayerItemKind::group;
    PixelRegion region;
    for (const LayerItem& member : members)
        region |= member.region();
    group.parts = region.rects();
    group.members = std::move(members);
    return group;
}

void roundCorners(Flattened& layer, double radius)
{
    if (layer.items.empty())
        return;
    // Rounding each for itself would let what lies behind shine through where two smoothed edges meet.
    if (layer.items.size() > 1 || layer.items.front().frame != layer.base.frame || layer.items.front().cornerRadius > 0)
        layer.items = {groupOf(layer.base, std::move(layer.items))};
    layer.items.front().cornerRadius = radius;
}

void fade(Flattened& layer, double opacity)
{
    if (layer.items.size() > 1)
        layer.items = {groupOf(layer.base, std::move(layer.items))};
    for (LayerItem& item : layer.items)
        item.opacity *= opacity;
}

LayerItem itemOf(const Flattened& layer, LayerItemKind kind)
{
    LayerItem item = layer.base;
    item.kind = kind;
    return item;
}

void addOwnItems(const Layer& layer, double scale, Flattened& flattened)
{
    const Point origin = flattened.base.origin;
    const PixelRect& frame = flattened.base.frame;
    if (layer.backgroundColor() && layer.backgroundColor()->alpha > 0)
        flattened.items.push_back(itemOf(flattened, LayerItemKind::background));
    if (layer.contents()) {
        LayerItem item = itemOf(flattened, LayerItemKind::contents);
        item.contentsRect =
            layer.contentsRectIn({double(frame.x), double(frame.y), double(frame.width), double(frame.height)});
        flattened.items.push_back(std::move(item));
    }
    if (layer.painter()) {
        LayerItem item = itemOf(flattened, LayerItemKind::painting);
        item.parts.clear();
        for (const Rect& part : layer.coverage())
            item.parts.push_back(outwardPixels(part.movedBy(origin.x, origin.y), scale));
        flattened.items.push_back(std::move(item));
    }
}

std::vector<LayerItem> flatten(const Layer& layer, Point origin, double scale)
{
    if (layer.isHidden() || layer.opacity() <= 0)
        return {};
    Flattened flattened;
    LayerItem& base = flattened.base;
    base.layer = &layer;
    base.origin = origin;
    base.frame = nearestPixels({origin.x, origin.y, layer.frame().width, layer.frame().height}, scale);
    base.parts = {base.frame};
    addOwnItems(layer, scale, flattened);

    const double shorterSide = std::min(layer.frame().width, layer.frame().height);
    const double radius = std::clamp(layer.cornerRadius(), 0.0, std::max(shorterSide, 0.0) / 2) * scale;
    if (radius > 0 && !layer.masksToBounds())
        roundCorners(flattened, radius);
    for (const Layer* const sublayer : layer.sublayersInOrder()) {
        std::vector<LayerItem> inner =
            flatten(*sublayer, {origin.x + sublayer->frame().x, origin.y + sublayer->frame().y}, scale);
        std::move(inner.begin(), inner.end(), std::back_inserter(flattened.items));
    }
    if (layer.masksToBounds()) {
        clipItems(flattened.items, base.frame);
        if (radius > 0)
            roundCorners(flattened, radius);
    }
    if (layer.opacity() < 1)
        fade(flattened, layer.opacity());
    return std::move(flattened.items);
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
    if (opacity < 1 || cornerRadius > 0)
        return false;
    switch (kind) {
    case LayerItemKind::background:
        return layer->backgroundColor()->alpha >= 1;
    case LayerItemKind::contents:
        return layer->contents()->alpha() == SurfaceAlpha::opaque;
    case LayerItemKind::painting:
    case LayerItemKind::group:
        return false;
    }
    return false;
}

bool LayerItem::hasWholePixels() const
{
    const Surface& surface = *layer->contents();
    return contentsRect.width == surface.width() && contentsRect.height == surface.height() &&
           contentsRect.x == std::floor(contentsRect.x) && contentsRect.y == std::floor(contentsRect.y);
}

bool LayerItem::isPixelForPixel() const
{
    return !layer->isMirrored() && hasWholePixels();
}

std::vector<LayerItem> flattenLayers(const Layer& root, double scale)
{
    // The root fills its window whatever its frame's origin says.
    return flatten(root, {0, 0}, scale);
}

void growByFilter(const std::vector<LayerItem>& items, PixelRegion& dirty)
{
    for (const LayerItem& item : items) {
        growByFilter(item.members, dirty);
        if (item.kind != LayerItemKind::contents || item.isPixelForPixel())
            continue;
        const Surface& surface = *item.layer->contents();
        const int reach = 1 + int(std::ceil(std::max(item.contentsRect.width / surface.width(),
                                                     item.contentsRect.height / surface.height())));
        PixelRegion inside = item.region();
        inside &= dirty;
        PixelRegion grown;
        for (const PixelRect& rect : inside.rects())
            grown.add(rect.x - reach, rect.y - reach, rect.width + 2 * reach, rect.height + 2 * reach);
        grown &= item.region();
        dirty |= grown;
    }
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
