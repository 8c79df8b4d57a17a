#include "region/region_overlay_painter.h"

#include "controls/label_text.h"
#include "controls/painting.h"

#include <QPainter>
#include <algorithm>
#include <cmath>
#include <cstdint>

namespace nimbrale {

namespace {

constexpr Color black{0, 0, 0, 1};
constexpr Color white{1, 1, 1, 1};
constexpr Color symbolColor{0, 0, 0, 0.7};
constexpr double pressedDarkening = 0.12;
constexpr double dashLength = 8;
constexpr double dashPeriod = 13;

} // namespace

/// One run of drawing. `dirty` is in layer coordinates, what the layout says is in view coordinates.
struct RegionOverlayPainter::Pass {
    QPainter& painter;
    const Rect& dirty;
    const RegionOverlayLayout& layout;
    const RegionOverlayAppearance& appearance;
    Size viewSize;
    double scale;
    Color frameColor;

    /// From view to layer coordinates or back.
    [[nodiscard]] Rect flipped(const Rect& rect) const
    {
        return {rect.x, viewSize.height - rect.maxY(), rect.width, rect.height};
    }
    [[nodiscard]] bool showsWithShadow(const Rect& layerRect) const
    {
        return layerRect.grownBy(RegionOverlayLayout::shadowRoom).intersects(dirty);
    }
};

RegionOverlayPainter::RegionOverlayPainter(const OverlayColors& colors)
    : colors_(colors), recordingFont_(labelFont(11, QFont::Bold)), sizeLabelFont_(labelFont(12, QFont::DemiBold))
{}

double RegionOverlayPainter::recordingTextWidth(const std::string& text) const
{
    return labelTextWidth(recordingFont_, QString::fromStdString(text));
}

double RegionOverlayPainter::sizeLabelTextWidth(const std::string& text) const
{
    return labelTextWidth(sizeLabelFont_, QString::fromStdString(text));
}

void RegionOverlayPainter::paint(QPainter& painter, const Rect& dirty, const RegionOverlayLayout& layout,
                                 const RegionOverlayAppearance& appearance, Size viewSize, double scale)
{
    const Pass pass{
        painter, dirty, layout, appearance, viewSize, scale, appearance.isActive ? colors_.active : colors_.frame};
    painter.save();
    // Lines and bands are filled without smoothing: their edges are on whole pixels, or belong there.
    painter.setRenderHint(QPainter::Antialiasing, false);
    clear(painter, dirty);
    paintGuides(pass);
    paintBorder(pass);
    painter.setRenderHint(QPainter::Antialiasing, true);
    paintControls(pass);
    if (appearance.recordingText && layout.recordingBackground())
        paintLabel(pass, *layout.recordingBackground(), *appearance.recordingText, recordingFont_);
    if (!appearance.sizeLabel.empty() && layout.sizeLabelBackground())
        paintLabel(pass, *layout.sizeLabelBackground(), appearance.sizeLabel, sizeLabelFont_);
    painter.restore();
}

void RegionOverlayPainter::paintGuides(const Pass& pass) const
{
    // A guide is one pixel wide, so that every dash is a rectangle of its own. Only those in the dirty part are drawn.
    const double pixel = 1 / pass.scale;
    const QColor color = toQColor(colors_.active);
    const Rect dirty = pass.flipped(pass.dirty).grownBy(1);
    for (const Rect& guide : pass.layout.guides()) {
        const bool isHorizontal = guide.width != 0;
        const double across = roundHalfAwayFromZero(isHorizontal ? guide.minY() : guide.minX());
        const double length = isHorizontal ? pass.viewSize.width : pass.viewSize.height;
        const Rect line = isHorizontal ? Rect{0, across, length, pixel} : Rect{across, 0, pixel, length};
        const Rect visible = line.intersectedWith(dirty);
        if (visible.isEmpty())
            continue;
        const double first = isHorizontal ? visible.minX() : visible.minY();
        const double last = isHorizontal ? visible.maxX() : visible.maxY();
        for (double start = std::floor(first / dashPeriod) * dashPeriod; start < last; start += dashPeriod) {
            const Rect inView =
                isHorizontal ? Rect{start, across, dashLength, pixel} : Rect{across, start, pixel, dashLength};
            pass.painter.fillRect(toQRectF(pass.flipped(inView)), color);
        }
    }
}

void RegionOverlayPainter::paintBorder(const Pass& pass) const
{
    const QColor color = toQColor(pass.frameColor);
    for (const Rect& band : pass.layout.borderBands())
        pass.painter.fillRect(toQRectF(pass.flipped(band)), color);
}

void RegionOverlayPainter::paintControls(const Pass& pass)
{
    const auto draw = [&](const Rect& rect, const ControlStyle& style) {
        const Rect inLayer = pass.flipped(rect);
        if (pass.showsWithShadow(inLayer))
            controls_.drawControl(pass.painter, toQRectF(inLayer), style, pass.scale);
    };
    draw(pass.layout.handle(),
         {pass.frameColor, ControlSymbol::move, controlSymbolSize(ControlSymbol::move), symbolColor});
    for (const FrameButton button : allFrameButtons)
        draw(pass.layout.button(button), buttonStyle(pass, button));
    draw(pass.layout.resizeButton(),
         {pass.frameColor, ControlSymbol::resize, controlSymbolSize(ControlSymbol::resize), symbolColor});
}

ControlStyle RegionOverlayPainter::buttonStyle(const Pass& pass, FrameButton button) const
{
    Color base = pass.appearance.hoveredButton == button ? colors_.active : pass.frameColor;
    if (pass.appearance.pressedButton == button)
        base = blended(base, pressedDarkening, black);
    const ControlSymbol symbol = buttonSymbol(button, pass.appearance.recordingText.has_value());
    Color color = symbolColor;
    if (symbol == ControlSymbol::record)
        color = colors_.recording;
    else if (symbol == ControlSymbol::stopRecording)
        color = white;
    return {base, symbol, controlSymbolSize(symbol), color};
}

void RegionOverlayPainter::paintLabel(const Pass& pass, const Rect& background, const std::string& text,
                                      const QFont& font)
{
    const Rect inLayer = pass.flipped(background);
    if (!pass.showsWithShadow(inLayer))
        return;
    controls_.drawBackground(pass.painter, toQRectF(inLayer), colors_.label, pass.scale);
    pass.painter.setPen(Qt::white);
    drawLabelText(pass.painter, font, toQRectF(inLayer), QString::fromStdString(text));
}

ControlSymbol buttonSymbol(FrameButton button, bool isRecording)
{
    switch (button) {
    case FrameButton::close:
        return ControlSymbol::close;
    case FrameButton::settings:
        return ControlSymbol::settings;
    case FrameButton::record:
        break;
    }
    return isRecording ? ControlSymbol::stopRecording : ControlSymbol::record;
}

std::string recordingTimeText(double seconds)
{
    const auto total = std::max<std::int64_t>(0, truncatedToInteger(seconds));
    const auto twoDigits = [](std::int64_t number) { return (number < 10 ? "0" : "") + std::to_string(number); };
    constexpr std::int64_t hour = 3600;
    const std::string wholeSeconds = twoDigits(total % 60);
    if (total < hour)
        return "REC " + std::to_string(total / 60) + ":" + wholeSeconds;
    return "REC " + std::to_string(total / hour) + ":" + twoDigits(total % hour / 60) + ":" + wholeSeconds;
}

} // namespace nimbrale
