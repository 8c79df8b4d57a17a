#include "controls/control_tip.h"

#include "controls/label_text.h"
#include "controls/painting.h"

#include <QPainter>
#include <algorithm>
#include <utility>

namespace nimbrale {

namespace {

constexpr double height = 24;
constexpr double roomForText = 20;
/// Between the control, or the screen's edge, and the tip.
constexpr double distance = 8;

QFont tipFont()
{
    return labelFont(12, QFont::Normal);
}

} // namespace

Rect controlTipPlace(const Rect& control, double textWidth, const Rect& screen)
{
    const double width = roundHalfAwayFromZero(textWidth + roomForText);
    const double right = control.maxX() + distance;
    const bool fitsOnTheRight = right + width + distance <= screen.maxX();
    const double x = fitsOnTheRight ? right : control.minX() - distance - width;
    const double y =
        std::clamp(control.midY() - height / 2, screen.minY(), std::max(screen.minY(), screen.maxY() - height));
    return {roundHalfAwayFromZero(x), roundHalfAwayFromZero(y), width, height};
}

ControlTip::ControlTip(Panels& panels, MainQueue& queue, const Color& background)
    : panels_(panels), queue_(queue), background_(background)
{}

ControlTip::~ControlTip() = default;

void ControlTip::pointerCameTo(const Rect& control, const std::string& text, const Rect& screen)
{
    dismiss();
    timer_ = queue_.schedule(delay, [this, control, text, screen] { show(control, text, screen); });
}

void ControlTip::dismiss()
{
    timer_.reset();
    if (!panel_)
        return;
    panel_->orderOut();
    panel_.reset();
}

void ControlTip::show(const Rect& control, const std::string& text, const Rect& screen)
{
    const QString words = QString::fromStdString(text);
    const Rect place = controlTipPlace(control, labelTextWidth(tipFont(), words), screen);
    const Rect frame = place.grownBy(ControlDrawing::shadowReach);
    panel_ = panels_.create(
        {.style = PanelStyle::overlay, .frame = frame, .level = panel_level::tip, .title = "Nimbrale: " + text});
    Layer& layer = panel_->rootLayer();
    layer.setPainter([this, words, bounds = layer.bounds()](QPainter& painter, const Rect& dirty) {
        clear(painter, dirty);
        painter.setRenderHint(QPainter::Antialiasing, true);
        const QRectF background = toQRectF(bounds.grownBy(-ControlDrawing::shadowReach));
        drawing_.drawBackground(painter, background, background_, panel_->backingScaleFactor());
        painter.setPen(Qt::white);
        drawLabelText(painter, tipFont(), background, words);
    });
    layer.setCoverage({layer.bounds()});
    layer.setNeedsDisplay(layer.bounds());
    panel_->orderFront();
}

} // namespace nimbrale
