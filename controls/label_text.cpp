#include "controls/label_text.h"

#include <QFontMetricsF>
#include <QPainter>
#include <algorithm>
#include <cmath>

namespace nimbrale {

namespace {

/// Calls `visit(piece, x)` for every digit and every run of other characters; returns where the text ends.
template <typename Visit>
double forEachPiece(const QFontMetricsF& metrics, const QString& text, Visit visit)
{
    const double cell = digitWidth([&](QChar digit) { return metrics.horizontalAdvance(digit); });
    double x = 0;
    qsizetype start = 0;
    while (start < text.size()) {
        if (text[start].isDigit()) {
            const QString digit = text.mid(start, 1);
            visit(digit, x + (cell - metrics.horizontalAdvance(digit)) / 2);
            x += cell;
            ++start;
            continue;
        }
        qsizetype end = start;
        while (end < text.size() && !text[end].isDigit())
            ++end;
        const QString run = text.mid(start, end - start);
        visit(run, x);
        x += metrics.horizontalAdvance(run);
        start = end;
    }
    return x;
}

} // namespace

QFont labelFont(double size, QFont::Weight weight)
{
    QFont font;
    font.setPixelSize(static_cast<int>(size)); // The painter is scaled: one of its pixels is one point.
    font.setWeight(weight);
    // What is drawn lies over whatever the desktop shows, so that colored fringes would be wrong; and widths must not
    // depend on the scale.
    font.setStyleStrategy(static_cast<QFont::StyleStrategy>(QFont::PreferAntialias | QFont::NoSubpixelAntialias));
    font.setHintingPreference(QFont::PreferNoHinting);
    return font;
}

double digitWidth(const std::function<double(QChar digit)>& advance)
{
    double widest = 0;
    for (char digit = '0'; digit <= '9'; ++digit)
        widest = std::max(widest, advance(QLatin1Char(digit)));
    return widest;
}

double labelTextWidth(const QFont& font, const QString& text)
{
    return forEachPiece(QFontMetricsF(font), text, [](const QString&, double) {});
}

void drawLabelText(QPainter& painter, const QFont& font, const QRectF& rect, const QString& text)
{
    const QFontMetricsF metrics(font);
    const double x = rect.center().x() - labelTextWidth(font, text) / 2;
    // On a whole pixel, so that the feet of the letters are sharp.
    const double scale = painter.deviceTransform().m22();
    const double baseline = std::round((rect.center().y() + metrics.capHeight() / 2) * scale) / scale;
    painter.setFont(font);
    forEachPiece(metrics, text,
                 [&](const QString& piece, double offset) { painter.drawText(QPointF(x + offset, baseline), piece); });
}

} // namespace nimbrale
