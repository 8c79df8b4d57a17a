#include "platform/x11/layers/layer_painting.h"

#include "platform/buffer_surface.h"
#include "platform/x11/layers/corner_masks.h"

#include <QPainter>

#include <algorithm>

namespace nimbrale::x11 {

namespace {

QColor painterColor(const Color& color)
{
    return QColor::fromRgbF(float(color.red), float(color.green), float(color.blue), float(color.alpha));
}

QRect painterRect(const PixelRect& rect)
{
    return {rect.x, rect.y, rect.width, rect.height};
}

void paintContents(QPainter& painter, const LayerItem& item)
{
    const auto& surface = dynamic_cast<const BufferSurface&>(*item.layer->contents());
    const PixelBuffer& pixels = surface.pixels();
    const QImage image(reinterpret_cast<const uchar*>(pixels.row(0)), pixels.width(), pixels.height(),
                       static_cast<qsizetype>(pixels.stride()),
                       surface.alpha() == SurfaceAlpha::opaque ? QImage::Format_RGB32
                                                               : QImage::Format_ARGB32_Premultiplied);
    painter.setClipRect(painterRect(item.frame), Qt::IntersectClip);
    painter.setRenderHint(QPainter::SmoothPixmapTransform, !item.isPixelForPixel());
    const Rect& area = item.contentsRect;
    QRectF target(area.x, area.y, area.width, area.height);
    if (item.layer->isMirrored()) {
        painter.translate(area.x + area.maxX(), 0);
        painter.scale(-1, 1);
    }
    painter.drawImage(target, image);
}

/// Without its opacity and shape. The image is transparent where the item is to be painted.
void paintPlainly(QImage& image, int x, int y, const LayerItem& item, double scale)
{
    if (item.kind == LayerItemKind::group) {
        paintItems(image, x, y, item.members, scale);
        return;
    }
    QPainter painter(&image);
    painter.translate(-x, -y);
    if (item.clip)
        painter.setClipRect(painterRect(*item.clip));
    switch (item.kind) {
    case LayerItemKind::background:
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillRect(painterRect(item.frame), painterColor(*item.layer->backgroundColor()));
        return;
    case LayerItemKind::contents:
        paintContents(painter, item);
        return;
    case LayerItemKind::painting: {
        painter.scale(scale, scale);
        painter.translate(item.origin.x, item.origin.y);
        const Rect dirty{x / scale - item.origin.x, y / scale - item.origin.y, image.width() / scale,
                         image.height() / scale};
        item.layer->painter()(painter, dirty);
        return;
    }
    case LayerItemKind::group:
        return;
    }
}

void keepInsideOfCorners(QImage& image, int x, int y, const LayerItem& item)
{
    QImage mask(item.frame.width, item.frame.height, QImage::Format_Alpha8);
    paintCornerMask(mask, item.cornerRadius, 1);
    QPainter painter(&image);
    painter.setCompositionMode(QPainter::CompositionMode_DestinationIn);
    painter.drawImage(item.frame.x - x, item.frame.y - y, mask);
}

} // namespace

bool showsContents(const LayerItem& item)
{
    return item.kind == LayerItemKind::contents || std::any_of(item.members.begin(), item.members.end(), showsContents);
}

bool isPaintable(const LayerItem& item)
{
    if (item.kind == LayerItemKind::contents)
        return dynamic_cast<const BufferSurface*>(item.layer->contents().get()) != nullptr;
    return std::all_of(item.members.begin(), item.members.end(), isPaintable);
}

void paintItems(QImage& image, int x, int y, const std::vector<LayerItem>& items, double scale)
{
    bool isEmpty = true;
    for (const LayerItem& item : items) {
        PixelRegion part = item.region();
        part &= PixelRegion(x, y, image.width(), image.height());
        if (part.isEmpty())
            continue;
        if (isEmpty && item.opacity >= 1 && item.cornerRadius == 0) {
            paintPlainly(image, x, y, item, scale);
        } else {
            // A painter may replace pixels instead of blending them, and knows nothing of its layer's opacity.
            QImage apart(image.size(), QImage::Format_ARGB32_Premultiplied);
            apart.fill(Qt::transparent);
            paintPlainly(apart, x, y, item, scale);
            if (item.cornerRadius > 0)
                keepInsideOfCorners(apart, x, y, item);
            QPainter blender(&image);
            blender.setOpacity(item.opacity);
            blender.drawImage(0, 0, apart);
        }
        isEmpty = false;
    }
}

} // namespace nimbrale::x11
