#include "platform/x11/layers/layer_painting.h"

#include "platform/buffer_surface.h"
#include "platform/x11/layers/corner_masks.h"

#include <QPainter>

#include <algorithm>
#include <cmath>
#include <iterator>

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

const PixelBuffer& pixelsOf(const LayerItem& item)
{
    return dynamic_cast<const BufferSurface&>(*item.layer->contents()).pixels();
}

void copyRow(const QRgb* __restrict from, QRgb* __restrict to, int count, QRgb alpha)
{
    for (int x = 0; x < count; ++x)
        to[x] = from[x] | alpha;
}

void copyRowMirrored(const QRgb* __restrict from, QRgb* __restrict to, int count, QRgb alpha)
{
    for (int x = 0; x < count; ++x)
        to[x] = from[count - 1 - x] | alpha;
}

/// Contents whose pixels lie on those of the window, in place of what is there.
void copyContents(QImage& image, int x, int y, const LayerItem& item)
{
    const PixelBuffer& pixels = pixelsOf(item);
    const PixelRect whole{static_cast<int>(item.contentsRect.x), static_cast<int>(item.contentsRect.y), pixels.width(),
                          pixels.height()};
    PixelRect part = whole.intersectedWith(item.frame).intersectedWith({x, y, image.width(), image.height()});
    if (item.clip)
        part = part.intersectedWith(*item.clip);
    if (part.isEmpty())
        return;
    const QRgb alpha = item.layer->contents()->alpha() == SurfaceAlpha::opaque ? 0xff000000U : 0;
    const bool isMirrored = item.layer->isMirrored();
    const int column = isMirrored ? whole.x + whole.width - part.x - part.width : part.x - whole.x;
    const auto copy = isMirrored ? &copyRowMirrored : &copyRow;
    for (int row = part.y; row < part.y + part.height; ++row)
        copy(reinterpret_cast<const QRgb*>(pixels.row(row - whole.y)) + column,
             reinterpret_cast<QRgb*>(image.scanLine(row - y)) + (part.x - x), part.width, alpha);
}

void paintContents(QPainter& painter, const LayerItem& item)
{
    const PixelBuffer& pixels = pixelsOf(item);
    const QImage image(reinterpret_cast<const uchar*>(pixels.row(0)), pixels.width(), pixels.height(),
                       static_cast<qsizetype>(pixels.stride()),
                       item.layer->contents()->alpha() == SurfaceAlpha::opaque ? QImage::Format_RGB32
                                                                               : QImage::Format_ARGB32_Premultiplied);
    painter.setClipRect(painterRect(item.frame), Qt::IntersectClip);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const Rect& area = item.contentsRect;
    QRectF target(area.x, area.y, area.width, area.height);
    if (item.layer->isMirrored()) {
        painter.translate(area.x + area.maxX(), 0);
        painter.scale(-1, 1);
    }
    painter.drawImage(target, image);
}

/// Paints over a part of a window that begins at (x, y), in pixels of the window.
void beginPainting(QPainter& painter, int x, int y, const LayerItem& item)
{
    painter.translate(-x, -y);
    if (item.clip)
        painter.setClipRect(painterRect(*item.clip));
}

bool covers(const LayerItem& item, const PixelRect& pixels)
{
    PixelRegion uncovered(pixels);
    uncovered -= item.region();
    return uncovered.isEmpty();
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

void LayerPainter::paint(QImage& image, int x, int y, const std::vector<LayerItem>& items, double scale)
{
    const PixelRect pixels{x, y, image.width(), image.height()};
    const auto hidesTheRest = [&](const LayerItem& item) { return item.isOpaque() && covers(item, pixels); };
    const auto front = std::find_if(items.rbegin(), items.rend(), hidesTheRest);
    bool isEmpty = true;
    for (auto item = front == items.rend() ? items.begin() : std::prev(front.base()); item != items.end(); ++item) {
        PixelRegion part = item->region();
        part &= PixelRegion(pixels);
        if (part.isEmpty())
            continue;
        if (item->opacity >= 1 && (isEmpty || item->isOpaque())) {
            paintInCorners(image, x, y, *item, scale);
        } else {
            // A painter may replace pixels instead of blending them, and knows nothing of its layer's opacity.
            QImage apart(image.size(), QImage::Format_ARGB32_Premultiplied);
            apart.fill(Qt::transparent);
            paintInCorners(apart, x, y, *item, scale);
            QPainter blender(&image);
            blender.setOpacity(item->opacity);
            blender.drawImage(0, 0, apart);
        }
        isEmpty = false;
    }
}

/// Without its opacity. The image is transparent where the item is to be painted, or the item opaque.
void LayerPainter::paintInCorners(QImage& image, int x, int y, const LayerItem& item, double scale)
{
    paintPlainly(image, x, y, item, scale);
    if (item.cornerRadius > 0)
        keepInsideOfCorners(image, x, y, item);
}

/// Without its shape, too.
void LayerPainter::paintPlainly(QImage& image, int x, int y, const LayerItem& item, double scale)
{
    switch (item.kind) {
    case LayerItemKind::group:
        paint(image, x, y, item.members, scale);
        return;
    case LayerItemKind::background: {
        QPainter painter(&image);
        beginPainting(painter, x, y, item);
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillRect(painterRect(item.frame), painterColor(*item.layer->backgroundColor()));
        return;
    }
    case LayerItemKind::contents: {
        if (item.hasWholePixels()) {
            copyContents(image, x, y, item);
            return;
        }
        QPainter painter(&image);
        beginPainting(painter, x, y, item);
        paintContents(painter, item);
        return;
    }
    case LayerItemKind::painting: {
        QPainter painter(&image);
        beginPainting(painter, x, y, item);
        painter.scale(scale, scale);
        painter.translate(item.origin.x, item.origin.y);
        const Rect dirty{x / scale - item.origin.x, y / scale - item.origin.y, image.width() / scale,
                         image.height() / scale};
        item.layer->painter()(painter, dirty);
        return;
    }
    }
}

void LayerPainter::keepInsideOfCorners(QImage& image, int x, int y, const LayerItem& item)
{
    const QRect frame = painterRect(item.frame);
    if (mask_.size() != frame.size() || maskRadius_ != item.cornerRadius) {
        mask_ = QImage(frame.size(), QImage::Format_Alpha8);
        maskRadius_ = item.cornerRadius;
        paintCornerMask(mask_, maskRadius_, 1);
    }
    // Between the corners the mask changes nothing.
    const int side = static_cast<int>(std::ceil(item.cornerRadius));
    const int left = std::min(side, frame.width());
    const int top = std::min(side, frame.height());
    const int right = std::max(left, frame.width() - side);
    const int bottom = std::max(top, frame.height() - side);
    QPainter painter(&image);
    painter.setCompositionMode(QPainter::CompositionMode_DestinationIn);
    for (const QRect& corner : {QRect(0, 0, left, top), QRect(right, 0, frame.width() - right, top),
                                QRect(0, bottom, left, frame.height() - bottom),
                                QRect(right, bottom, frame.width() - right, frame.height() - bottom)})
        painter.drawImage(frame.topLeft() - QPoint(x, y) + corner.topLeft(), mask_, corner);
}

} // namespace nimbrale::x11
