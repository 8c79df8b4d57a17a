#pragma once

#include "platform/color.h"
#include "platform/geometry.h"

#include <QColor>
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

} // namespace nimbrale
