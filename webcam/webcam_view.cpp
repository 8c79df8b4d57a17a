#include "webcam/webcam_view.h"

#include "controls/painting.h"
#include "webcam/webcam_appearance.h"
#include "webcam/webcam_window.h"

#include <QPainter>
#include <algorithm>
#include <cmath>
#include <utility>

namespace nimbrale {

namespace {

constexpr double controlsZPosition = 1;

/// Where a pixel is no whole number of points, whole distances are missed by the rounding of doubles.
double wholePoints(double distance)
{
    constexpr double arithmeticSlack = 1e-6;
    return std::trunc(distance + std::copysign(arithmeticSlack, distance));
}

ControlSymbol symbolOf(WebcamControl control)
{
    switch (control) {
    case WebcamControl::move:
        return ControlSymbol::move;
    case WebcamControl::resize:
        return ControlSymbol::resize;
    case WebcamControl::close:
        return ControlSymbol::close;
    case WebcamControl::settings:
        break;
    }
    return ControlSymbol::settings;
}

CursorShape cursorOver(std::optional<WebcamControl> control)
{
    if (!control)
        return CursorShape::arrow;
    if (*control == WebcamControl::move)
        return CursorShape::openHand;
    return *control == WebcamControl::resize ? CursorShape::resizeBottomRight : CursorShape::pointingHand;
}

} // namespace

WebcamView::WebcamView(WebcamWindow& webcamWindow, std::shared_ptr<WebcamPictures> pictures, MainQueue& queue,
                       const OverlayColors& colors)
    : webcamWindow_(webcamWindow), colors_(colors), picture_(std::move(pictures)), fade_(*picture_.layer(), queue)
{
    Layer& root = webcamWindow_.panel().rootLayer();
    root.addSublayer(picture_.layer());
    controlsLayer_->setZPosition(controlsZPosition);
    controlsLayer_->setPainter([this](QPainter& painter, const Rect& dirty) { paintControls(painter, dirty); });
    root.addSublayer(controlsLayer_);
    layOut();
}

WebcamView::~WebcamView()
{
    controlsLayer_->removeFromSuperlayer();
}

WebcamControlsLayout WebcamView::layout() const
{
    return WebcamControlsLayout(webcamWindow_.frame().size());
}

Rect WebcamView::onScreen(const Rect& viewRect) const
{
    return viewRect.movedBy(webcamWindow_.frame().x, webcamWindow_.frame().y);
}

Rect WebcamView::inLayer(const Rect& viewRect) const
{
    return {viewRect.x, webcamWindow_.frame().height - viewRect.maxY(), viewRect.width, viewRect.height};
}

void WebcamView::applyAppearance(AppSettings::WebcamShape shape, bool mirrored, bool fadesOnHover)
{
    const LayerTransaction transaction(webcamWindow_.panel().rootLayer());
    picture_.setShape(shape);
    picture_.setMirrored(mirrored);
    fadesOnHover_ = fadesOnHover;
    updateMouseRegion();
    updateFade();
}

void WebcamView::layOut()
{
    Panel& panel = webcamWindow_.panel();
    const LayerTransaction transaction(panel.rootLayer());
    const Rect bounds{0, 0, webcamWindow_.frame().width, webcamWindow_.frame().height};
    picture_.layer()->setFrame(bounds);
    controlsLayer_->setFrame(bounds);
    redrawControls();
    updateMouseRegion();
}

void WebcamView::updateMouseRegion()
{
    Panel& panel = webcamWindow_.panel();
    // A picture that fades lets clicks through to what one then sees.
    if (fadesOnHover_)
        panel.setMouseRegion(layout().hitRegion(panel.backingScaleFactor()));
    else
        panel.setMouseRegion({{0, 0, webcamWindow_.frame().width, webcamWindow_.frame().height}});
}

void WebcamView::redrawControls()
{
    std::vector<Rect> coverage;
    for (const WebcamControl control : WebcamControlsLayout::hitOrder) {
        coverage.push_back(inLayer(layout().rect(control)).grownBy(ControlDrawing::shadowReach));
    }
    controlsLayer_->setCoverage(coverage);
    for (const Rect& area : coverage)
        controlsLayer_->setNeedsDisplay(area);
}

void WebcamView::paintControls(QPainter& painter, const Rect& dirty)
{
    clear(painter, dirty);
    if (!isHovered_)
        return;
    painter.setRenderHint(QPainter::Antialiasing, true);
    for (const WebcamControl control : WebcamControlsLayout::hitOrder) {
        const Rect rect = inLayer(layout().rect(control));
        if (!rect.grownBy(ControlDrawing::shadowReach).intersects(dirty))
            continue;
        ControlStyle style;
        style.base = hoveredControl_ == control ? colors_.active : colors_.frame;
        style.symbol = symbolOf(control);
        style.symbolSize = controlSymbolSize(style.symbol);
        drawing_.drawControl(painter, toQRectF(rect), style, webcamWindow_.panel().backingScaleFactor());
    }
}

void WebcamView::updateFade()
{
    fade_.fadeTo(isHovered_ && fadesOnHover_ ? fadedWebcamOpacity : 1);
}

void WebcamView::pollHover(Point mouseLocation)
{
    if (pressedControl_ || dragZone_)
        return;
    const Rect frame = webcamWindow_.frame();
    const bool isInside = pointerIsIn(frame, mouseLocation);
    setHoveredControl(isInside ? layout().controlAt({mouseLocation.x - frame.x, mouseLocation.y - frame.y})
                               : std::nullopt);
    setHovered(isInside);
}

void WebcamView::setHovered(bool isHovered)
{
    if (isHovered == isHovered_)
        return;
    isHovered_ = isHovered;
    {
        const LayerTransaction transaction(webcamWindow_.panel().rootLayer());
        updateFade();
        redrawControls();
    }
    if (webcamWindow_.onHoverChange)
        webcamWindow_.onHoverChange(isHovered);
}

void WebcamView::setHoveredControl(std::optional<WebcamControl> control)
{
    if (control == hoveredControl_)
        return;
    hoveredControl_ = control;
    webcamWindow_.panel().setCursor(cursorOver(control));
    updateTip();
    redrawControls();
}

void WebcamView::updateTip()
{
    // The handle speaks for itself.
    if (!hoveredControl_ || *hoveredControl_ == WebcamControl::move) {
        webcamWindow_.tip().dismiss();
        return;
    }
    webcamWindow_.tip().pointerCameTo(onScreen(layout().rect(*hoveredControl_)),
                                      controlDescription(symbolOf(*hoveredControl_)), webcamWindow_.screenFrame());
}

void WebcamView::mouseDown(const MouseEvent& event)
{
    webcamWindow_.tip().dismiss();
    const std::optional<WebcamControl> control = layout().controlAt(event.locationInPanel);
    if (control == WebcamControl::move)
        beginDrag(DragZone::move, event.screenLocation);
    else if (control == WebcamControl::resize)
        beginDrag(DragZone::resize, event.screenLocation);
    else
        pressedControl_ = control;
}

void WebcamView::beginDrag(DragZone zone, Point mouseLocation)
{
    dragZone_ = zone;
    dragStartMouse_ = mouseLocation;
    dragStartFrame_ = webcamWindow_.frame();
    if (zone == DragZone::move)
        webcamWindow_.panel().setCursor(CursorShape::closedHand);
}

Rect WebcamView::draggedFrame(Point mouseLocation) const
{
    const double dx = wholePoints(mouseLocation.x - dragStartMouse_.x);
    const double dy = wholePoints(mouseLocation.y - dragStartMouse_.y);
    if (dragZone_ == DragZone::move)
        return dragStartFrame_.movedBy(dx, dy);
    double width = dragStartFrame_.width + dx;
    double height = dragStartFrame_.height - dy;
    if (webcamWindow_.isSquare())
        width = height = std::max(width, height);
    return {dragStartFrame_.x, dragStartFrame_.maxY() - height, width, height};
}

void WebcamView::mouseDragged(const MouseEvent& event)
{
    if (!dragZone_)
        return;
    const Rect wanted = draggedFrame(event.screenLocation);
    webcamWindow_.setFrame(webcamWindow_.constrain ? webcamWindow_.constrain(wanted) : wanted);
    if (webcamWindow_.onFrameChange)
        webcamWindow_.onFrameChange(webcamWindow_.frame());
}

void WebcamView::mouseUp(const MouseEvent& event)
{
    const auto pressed = std::exchange(pressedControl_, std::nullopt);
    const auto dragged = std::exchange(dragZone_, std::nullopt);
    if (dragged) {
        webcamWindow_.panel().setCursor(cursorOver(hoveredControl_));
        if (webcamWindow_.onChangeEnded)
            webcamWindow_.onChangeEnded(webcamWindow_.frame());
    } else if (pressed && layout().controlAt(event.locationInPanel) == pressed) {
        pressEnded(*pressed);
    }
}

void WebcamView::pressEnded(WebcamControl control)
{
    // Whoever is called may release the window; nothing here is touched after the call.
    const std::function<void()> callback =
        control == WebcamControl::close ? webcamWindow_.onClose : webcamWindow_.onOpenSettings;
    if (callback)
        callback();
}

std::vector<AccessibleControl> WebcamView::accessibleControls()
{
    std::vector<AccessibleControl> controls;
    for (const WebcamControl control :
         {WebcamControl::move, WebcamControl::close, WebcamControl::settings, WebcamControl::resize}) {
        std::function<void()> press;
        if (control == WebcamControl::close || control == WebcamControl::settings)
            press = [this, control] { pressEnded(control); };
        controls.push_back({controlDescription(symbolOf(control)), onScreen(layout().rect(control)), std::move(press)});
    }
    return controls;
}

} // namespace nimbrale
