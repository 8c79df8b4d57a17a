#pragma once

#include "platform/color.h"
#include "platform/geometry.h"

#include <QColor>
#include <QPainter>
#include <QRectF>

namespace nimbrale {

[[nodiscard]] inline QColor toQColor(const Color& color)
{
    return QColor::fromRgbF(static_cast<float>(color.red), static_cast<float>(color.green),
                            static_cast<float>(color.blue), static_cast<float>(color.alpha));
}

[[nodiscard]] inline QRectF toQRectF(const Rect& rect)
{
    return {rect.x, rect.y, rect.width, rect.height};
}

/// Makes `dirty` wholly transparent and leaves the painter to draw over it. A layer's painter is clipped to whole
/// pixels, which may reach a little beyond `dirty`: these are cleared as well.
inline void clear(QPainter& painter, const Rect& dirty)
{
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(toQRectF(dirty.grownBy(1)), Qt::transparent);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
}

} // namespace nimbrale
