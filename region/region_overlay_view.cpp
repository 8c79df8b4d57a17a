#include "region/region_overlay_view.h"

#include "region/region_overlay_window.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace nimbrale {

RegionOverlayView::RegionOverlayView(RegionOverlayWindow& overlayWindow, const OverlayColors& colors)
    : overlayWindow_(overlayWindow), painter_(colors)
{
    updateLayout();
    overlayWindow_.panel().rootLayer().setPainter(
        [this](QPainter& painter, const Rect& dirty) { paint(painter, dirty); });
}

RegionOverlayView::~RegionOverlayView()
{
    overlayWindow_.panel().rootLayer().setPainter(nullptr);
}

Rect RegionOverlayView::inView(const Rect& screenRect) const
{
    return screenRect.movedBy(-overlayWindow_.frame().x, -overlayWindow_.frame().y);
}

Rect RegionOverlayView::onScreen(const Rect& viewRect) const
{
    return viewRect.movedBy(overlayWindow_.frame().x, overlayWindow_.frame().y);
}

Rect RegionOverlayView::inLayer(const Rect& viewRect) const
{
    return {viewRect.x, overlayWindow_.frame().height - viewRect.maxY(), viewRect.width, viewRect.height};
}

std::optional<Screen> RegionOverlayView::screen() const
{
    for (const Screen& screen : overlayWindow_.screens().screens()) {
        if (screen.frame == overlayWindow_.screenFrame())
            return screen;
    }
    return std::nullopt;
}

RegionOverlayLayoutInput RegionOverlayView::layoutInput() const
{
    RegionOverlayLayoutInput input;
    input.region = inView(overlayWindow_.regionFrame());
    input.screen = inView(overlayWindow_.screenFrame());
    if (const auto itsScreen = screen()) {
        if (const auto housing = cameraHousingRect(*itsScreen))
            input.cameraHousing = inView(*housing);
        if (itsScreen->reachableFrame)
            input.reachable = inView(*itsScreen->reachableFrame);
    }
    for (const Rect& guide : guides_)
        input.guides.push_back(inView(guide));
    if (recordingTime_)
        input.recordingTextWidth = painter_.recordingTextWidth(recordingTimeText(*recordingTime_));
    if (!sizeLabel_.empty())
        input.sizeLabelTextWidth = painter_.sizeLabelTextWidth(sizeLabel_);
    return input;
}

void RegionOverlayView::updateLayout()
{
    layout_ = RegionOverlayLayout(layoutInput());
    std::vector<Rect> coverage = layout_.coverage();
    for (Rect& rect : coverage)
        rect = inLayer(rect);
    overlayWindow_.panel().rootLayer().setCoverage(std::move(coverage));
    updateHitRegion();
}

void RegionOverlayView::updateHitRegion()
{
    // During a drag the panel gets every event wherever the pointer is.
    if (isDragging())
        return;
    // The slack around the resize button counts for a pointer that is leaving it, not for one that passes by.
    const auto slack =
        hoveredZone_ == DragZone::resize ? RegionOverlayLayout::ResizeSlack::yes : RegionOverlayLayout::ResizeSlack::no;
    Panel& panel = overlayWindow_.panel();
    panel.setMouseRegion(layout_.hitRegion(slack, overlayWindow_.frame().size(), panel.backingScaleFactor()));
}

void RegionOverlayView::invalidate(const std::vector<Rect>& viewRects)
{
    const Layer& layer = overlayWindow_.panel().rootLayer();
    for (const Rect& rect : viewRects)
        layer.setNeedsDisplay(inLayer(rect));
}

void RegionOverlayView::repaint()
{
    updateLayout();
    invalidate(coveredRects_);
    coveredRects_ = layout_.coverage();
    invalidate(coveredRects_);
}

void RegionOverlayView::windowWillMove(const Rect& oldFrame)
{
    const double dx = oldFrame.x - overlayWindow_.frame().x;
    const double dy = oldFrame.y - overlayWindow_.frame().y;
    // A resized panel keeps its picture in place on the screen, one that merely moves may take it along: what was
    // painted is to be drawn anew wherever it can be by now.
    const std::vector<Rect> takenAlong = coveredRects_;
    for (const Rect& rect : takenAlong)
        coveredRects_.push_back(rect.movedBy(dx, dy));
    updateLayout();
}

void RegionOverlayView::paint(QPainter& painter, const Rect& dirty)
{
    RegionOverlayAppearance appearance;
    appearance.isActive = isDragging() || hoveredZone_.has_value();
    appearance.hoveredButton = hoveredButton_;
    appearance.pressedButton = pressedButton_;
    if (recordingTime_)
        appearance.recordingText = recordingTimeText(*recordingTime_);
    appearance.sizeLabel = sizeLabel_;
    painter_.paint(painter, dirty, layout_, appearance, overlayWindow_.frame().size(),
                   overlayWindow_.panel().backingScaleFactor());
}

void RegionOverlayView::pollHover(Point mouseLocation)
{
    if (isDragging())
        return;
    const Point point{mouseLocation.x - overlayWindow_.frame().x, mouseLocation.y - overlayWindow_.frame().y};
    const std::optional<FrameButton> button = layout_.buttonAt(point);
    const std::optional<DragZone> zone = button ? std::nullopt : layout_.zoneAt(point);
    if (button == hoveredButton_ && zone == hoveredZone_)
        return;
    hoveredButton_ = button;
    hoveredZone_ = zone;
    updateCursor();
    updateTip();
    repaint();
}

void RegionOverlayView::updateTip()
{
    ControlTip& tip = overlayWindow_.tip();
    const auto say = [&](ControlSymbol symbol, const Rect& control) {
        tip.pointerCameTo(onScreen(control), controlDescription(symbol), overlayWindow_.screenFrame());
    };
    if (hoveredButton_)
        say(buttonSymbol(*hoveredButton_, recordingTime_.has_value()), layout_.button(*hoveredButton_));
    else if (hoveredZone_ == DragZone::move)
        say(ControlSymbol::move, layout_.handle());
    else if (hoveredZone_ == DragZone::resize)
        say(ControlSymbol::resize, layout_.resizeButton());
    else
        tip.dismiss();
}

void RegionOverlayView::updateCursor()
{
    CursorShape shape = CursorShape::arrow;
    if (hoveredButton_)
        shape = CursorShape::pointingHand;
    else if (hoveredZone_ == DragZone::move)
        shape = CursorShape::openHand;
    else if (hoveredZone_ == DragZone::resize)
        shape = CursorShape::resizeBottomRight;
    overlayWindow_.panel().setCursor(shape);
}

void RegionOverlayView::mouseDown(const MouseEvent& event)
{
    overlayWindow_.tip().dismiss();
    if (const auto button = layout_.buttonAt(event.locationInPanel)) {
        pressedButton_ = button;
        repaint();
        return;
    }
    if (const auto zone = layout_.pressedZoneAt(event.locationInPanel))
        beginDrag(*zone, event.screenLocation);
}

void RegionOverlayView::beginDrag(DragZone zone, Point mouseLocation)
{
    dragZone_ = zone;
    dragStartMouse_ = mouseLocation;
    dragStartRegion_ = overlayWindow_.regionFrame();
    if (overlayWindow_.onChangeBegan)
        overlayWindow_.onChangeBegan();
    overlayWindow_.setFrame(overlayWindow_.screenFrame());
    overlayWindow_.panel().setCursor(zone == DragZone::move ? CursorShape::closedHand : CursorShape::resizeBottomRight);
}

Rect RegionOverlayView::draggedFrame(Point mouseLocation) const
{
    const double dx = roundHalfAwayFromZero(mouseLocation.x - dragStartMouse_.x);
    const double dy = roundHalfAwayFromZero(mouseLocation.y - dragStartMouse_.y);
    if (dragZone_ == DragZone::move)
        return dragStartRegion_.movedBy(dx, dy);
    const double width = std::max(smallestRegionSide, dragStartRegion_.width + dx);
    const double height = std::max(smallestRegionSide, dragStartRegion_.height - dy);
    return {dragStartRegion_.x, dragStartRegion_.maxY() - height, width, height};
}

void RegionOverlayView::mouseDragged(const MouseEvent& event)
{
    if (!dragZone_)
        return;
    RegionOverlayWindow::Change change;
    change.frame = draggedFrame(event.screenLocation);
    if (overlayWindow_.onChange)
        change = overlayWindow_.onChange(change.frame, *dragZone_, event.isCommandHeld);
    guides_ = std::move(change.guides);
    sizeLabel_ = std::move(change.label);
    overlayWindow_.setRegionFrame(change.frame);
    if (change.screenFrame && *change.screenFrame != overlayWindow_.screenFrame()) {
        overlayWindow_.setScreenFrame(*change.screenFrame);
        overlayWindow_.setFrame(*change.screenFrame);
        return;
    }
    repaint();
}

void RegionOverlayView::mouseUp(const MouseEvent& event)
{
    if (const auto button = std::exchange(pressedButton_, std::nullopt)) {
        repaint();
        if (layout_.buttonAt(event.locationInPanel) == button)
            pressEnded(*button);
        return;
    }
    if (isDragging())
        endDrag();
}

void RegionOverlayView::pressEnded(FrameButton button)
{
    const std::function<void()> callbacks[]{overlayWindow_.onClose, overlayWindow_.onOpenSettings,
                                            overlayWindow_.onToggleRecording};
    // Whoever is called may release the window; nothing here is touched after the call.
    if (const auto& callback = callbacks[static_cast<std::size_t>(button)])
        callback();
}

std::vector<AccessibleControl> RegionOverlayView::accessibleControls()
{
    std::vector<AccessibleControl> controls;
    controls.push_back({controlDescription(ControlSymbol::move), onScreen(layout_.handle()), {}});
    for (const FrameButton button : allFrameButtons) {
        const ControlSymbol symbol = buttonSymbol(button, recordingTime_.has_value());
        controls.push_back(
            {controlDescription(symbol), onScreen(layout_.button(button)), [this, button] { pressEnded(button); }});
    }
    controls.push_back({controlDescription(ControlSymbol::resize), onScreen(layout_.resizeButton()), {}});
    return controls;
}

void RegionOverlayView::endDrag()
{
    dragZone_.reset();
    guides_.clear();
    sizeLabel_.clear();
    overlayWindow_.setFrame(overlayWindow_.frameAtRest());
    updateCursor();
    if (const auto onChangeEnded = overlayWindow_.onChangeEnded)
        onChangeEnded();
}

void RegionOverlayView::setRecordingTime(std::optional<double> seconds)
{
    const auto textOf = [](std::optional<double> time) { return time ? recordingTimeText(*time) : std::string(); };
    const bool isSameText = textOf(seconds) == textOf(recordingTime_);
    const bool isSymbolSame = seconds.has_value() == recordingTime_.has_value();
    recordingTime_ = seconds;
    if (isSameText)
        return;
    if (!isSymbolSame) {
        repaint();
        return;
    }
    // Once a second for hours: only the text is drawn anew.
    const double room = RegionOverlayLayout::shadowRoom;
    const Rect before = layout_.recordingBackground()->grownBy(room);
    updateLayout();
    invalidate({before, layout_.recordingBackground()->grownBy(room)});
    coveredRects_ = layout_.coverage();
}

} // namespace nimbrale
