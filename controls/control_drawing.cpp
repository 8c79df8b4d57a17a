#include "controls/control_drawing.h"

#include "controls/painting.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

namespace nimbrale {

namespace {

constexpr double shadowBlurRadius = 6;
constexpr double shadowOffset = 2;
constexpr double shadowAlpha = 0.3;
constexpr Color white{1, 1, 1, 1};
constexpr Color black{0, 0, 0, 1};
/// More looks than one frame ever shows at a time; when there are more, some went out of use.
constexpr std::size_t mostLooksKept = 48;

/// The weights of a Gauss curve whose blur radius is two standard deviations. Beyond the reach of a shadow they would
/// change no pixel.
std::vector<double> blurWeights(double scale)
{
    const double deviation = shadowBlurRadius / 2 * scale;
    const int reach = static_cast<int>((ControlDrawing::shadowReach - shadowOffset) * scale);
    std::vector<double> weights;
    double sum = 0;
    for (int distance = -reach; distance <= reach; ++distance) {
        weights.push_back(std::exp(-0.5 * std::pow(distance / deviation, 2)));
        sum += weights.back();
    }
    for (double& weight : weights)
        weight /= sum;
    return weights;
}

/// One of the two passes of a blur: along rows when `step` is 1, along columns when it is the width.
std::vector<double> blurredAlong(const std::vector<double>& alpha, const std::vector<double>& weights, int length,
                                 int step, int lines, int lineStep)
{
    const int reach = static_cast<int>(weights.size() / 2);
    std::vector<double> blurred(alpha.size());
    for (int line = 0; line < lines; ++line) {
        for (int position = 0; position < length; ++position) {
            const int first = std::max(0, position - reach);
            const int last = std::min(length - 1, position + reach);
            double sum = 0;
            for (int source = first; source <= last; ++source)
                sum += weights[source - position + reach] * alpha[line * lineStep + source * step];
            blurred[line * lineStep + position * step] = sum;
        }
    }
    return blurred;
}

/// The soft shadow of what `shape` shows, of the same size; only the shape's alpha counts.
QImage shadowOf(const QImage& shape, double scale)
{
    const int width = shape.width();
    const int height = shape.height();
    std::vector<double> alpha;
    alpha.reserve(static_cast<std::size_t>(width) * height);
    for (int y = 0; y < height; ++y) {
        const auto* row = reinterpret_cast<const QRgb*>(shape.constScanLine(y));
        for (int x = 0; x < width; ++x)
            alpha.push_back(qAlpha(row[x]));
    }
    const std::vector<double> weights = blurWeights(scale);
    alpha = blurredAlong(alpha, weights, width, 1, height, width);
    alpha = blurredAlong(alpha, weights, height, width, width, 1);
    QImage shadow(width, height, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < height; ++y) {
        auto* row = reinterpret_cast<QRgb*>(shadow.scanLine(y));
        for (int x = 0; x < width; ++x)
            row[x] = qRgba(0, 0, 0, static_cast<int>(std::lround(alpha[y * width + x] * shadowAlpha)));
    }
    return shadow;
}

QPainterPath pill(const QRectF& rect)
{
    QPainterPath path;
    path.addRoundedRect(rect, rect.height() / 2, rect.height() / 2);
    return path;
}

/// A line of `width` along the shape's outline, its middle `inset` points inside of it. A ring is filled instead of a
/// path stroked: the toolkit strokes whatever is thinner than a pixel as wide as one and would reach out of the shape.
void strokePill(QPainter& painter, const QRectF& rect, double inset, double width, const QColor& color)
{
    const auto insetPill = [&rect](double distance) {
        return pill(rect.adjusted(distance, distance, -distance, -distance));
    };
    QPainterPath ring = insetPill(inset - width / 2);
    ring.addPath(insetPill(inset + width / 2));
    ring.setFillRule(Qt::OddEvenFill);
    painter.fillPath(ring, color);
}

/// In the middle of the control, its bottom-left corner moved to whole points from the control's, so that straight
/// edges are sharp.
QPainterPath symbolIn(const QRectF& rect, const ControlStyle& style)
{
    const QPainterPath symbol = controlSymbolPath(style.symbol, style.symbolSize);
    const QRectF box = symbol.boundingRect();
    const double fromLeft = std::round((rect.width() - box.width()) / 2);
    const double fromBottom = std::round((rect.height() - box.height()) / 2);
    return symbol.translated(rect.left() + fromLeft - box.left(), rect.bottom() - fromBottom - box.bottom());
}

void drawControlShape(QPainter& painter, const QRectF& rect, const ControlStyle& style)
{
    // An angle of 90 degrees: the gradient runs upward.
    QLinearGradient gradient(rect.bottomLeft(), rect.topLeft());
    gradient.setColorAt(0, toQColor(blended(style.base, 0.3, white)));
    gradient.setColorAt(1, toQColor(blended(style.base, 0.08, black)));
    painter.fillPath(pill(rect), gradient);
    strokePill(painter, rect, 1, 1, QColor::fromRgbF(1, 1, 1, 0.35F));
    strokePill(painter, rect, 0.25, 0.5, QColor::fromRgbF(0, 0, 0, 0.2F));
    painter.fillPath(symbolIn(rect, style), toQColor(style.symbolColor));
}

QPainter& prepared(QPainter& painter, double scale)
{
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(scale, scale);
    return painter;
}

} // namespace

Color blended(const Color& color, double fraction, const Color& other)
{
    const auto mix = [fraction](double from, double to) { return from + (to - from) * fraction; };
    return {mix(color.red, other.red), mix(color.green, other.green), mix(color.blue, other.blue),
            mix(color.alpha, other.alpha)};
}

void ControlDrawing::drawKept(QPainter& painter, const QRectF& rect, double scale, const Look& look,
                              const std::function<void(QPainter&, const QRectF&)>& drawShape)
{
    // Whole pixels around the shape, so that its edges fall on pixels wherever the control is put.
    const int margin = static_cast<int>(std::ceil(shadowReach * scale));
    auto kept = images_.find(look);
    if (kept == images_.end()) {
        const QSize size(static_cast<int>(std::ceil(rect.width() * scale)) + 2 * margin,
                         static_cast<int>(std::ceil(rect.height() * scale)) + 2 * margin);
        const QRectF shapeRect(margin / scale, margin / scale, rect.width(), rect.height());
        QImage shape(size, QImage::Format_ARGB32_Premultiplied);
        shape.fill(Qt::transparent);
        {
            QPainter shapePainter(&shape);
            drawShape(prepared(shapePainter, scale), shapeRect);
        }
        QImage image(size, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        {
            QPainter imagePainter(&image);
            imagePainter.drawImage(0, static_cast<int>(std::lround(shadowOffset * scale)), shadowOf(shape, scale));
            imagePainter.drawImage(0, 0, shape);
        }
        image.setDevicePixelRatio(scale);
        if (images_.size() >= mostLooksKept)
            images_.clear();
        kept = images_.emplace(look, std::move(image)).first;
    }
    const QPointF origin((std::round(rect.x() * scale) - margin) / scale,
                         (std::round(rect.y() * scale) - margin) / scale);
    painter.drawImage(origin, kept->second);
}

void ControlDrawing::drawControl(QPainter& painter, const QRectF& rect, const ControlStyle& style, double scale)
{
    const Color& base = style.base;
    const Color& symbol = style.symbolColor;
    const Look look{rect.width(),
                    rect.height(),
                    scale,
                    base.red,
                    base.green,
                    base.blue,
                    base.alpha,
                    symbol.red,
                    symbol.green,
                    symbol.blue,
                    symbol.alpha,
                    style.symbolSize,
                    static_cast<double>(style.symbol)};
    drawKept(painter, rect, scale, look, [&style](QPainter& shapePainter, const QRectF& shapeRect) {
        drawControlShape(shapePainter, shapeRect, style);
    });
}

void ControlDrawing::drawBackground(QPainter& painter, const QRectF& rect, const Color& color, double scale)
{
    const Look look{rect.width(), rect.height(), scale, color.red, color.green, color.blue, color.alpha};
    drawKept(painter, rect, scale, look, [&color](QPainter& shapePainter, const QRectF& shapeRect) {
        shapePainter.fillPath(pill(shapeRect), toQColor(color));
    });
}

} // namespace nimbrale
