#pragma once

#include <QFont>
#include <QString>

#include <functional>

class QPainter;
class QRectF;

namespace nimbrale {

/// The system's font in that size (points of the screen) and weight, as labels on the screen use it.
[[nodiscard]] QFont labelFont(double size, QFont::Weight weight);

/// The width of the widest digit, of whose width `advance` tells.
[[nodiscard]] double digitWidth(const std::function<double(QChar digit)>& advance);

/// The width of `text` in points when every digit is as wide as the widest one, so that a label does not tremble while
/// its numbers change.
[[nodiscard]] double labelTextWidth(const QFont& font, const QString& text);

/// Draws `text` like that, centred in `rect` by the height of its capitals and digits, with the painter's pen.
void drawLabelText(QPainter& painter, const QFont& font, const QRectF& rect, const QString& text);

} // namespace nimbrale
