#pragma once

#include "controls/control_symbols.h"
#include "platform/color.h"

#include <QImage>
#include <functional>
#include <map>
#include <vector>

class QPainter;
class QRectF;

namespace nimbrale {

/// What a control looks like, its place apart.
struct ControlStyle {
    Color base;
    ControlSymbol symbol = ControlSymbol::move;
    /// Of the symbol, in points.
    double symbolSize = 11;
    Color symbolColor{0, 0, 0, 0.7};
};

/// Draws the controls on the screen: a rounded shape on a soft shadow, with a gradient, a highlight, a rim and a
/// symbol. Every look is drawn once and kept, so that a repaint only copies pixels. Main thread only.
class ControlDrawing {
public:
    /// How far a shadow reaches beyond its shape at most, in points.
    static constexpr double shadowReach = 10;

    /// `rect` in points of `painter`, y downward; `scale` is the painter's pixels per point.
    void drawControl(QPainter& painter, const QRectF& rect, const ControlStyle& style, double scale);
    /// A plain rounded shape on the same shadow, for text to stand on.
    void drawBackground(QPainter& painter, const QRectF& rect, const Color& color, double scale);

private:
    /// The numbers that tell one look from another.
    using Look = std::vector<double>;

    void drawKept(QPainter& painter, const QRectF& rect, double scale, const Look& look,
                  const std::function<void(QPainter&, const QRectF&)>& drawShape);

    std::map<Look, QImage> images_;
};

/// `color` mixed with `other`: `fraction` 0 gives `color`, 1 gives `other`.
[[nodiscard]] Color blended(const Color& color, double fraction, const Color& other);

} // namespace nimbrale
