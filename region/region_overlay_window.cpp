#include "region/region_overlay_window.h"

#include <utility>

namespace nimbrale {

std::unique_ptr<RegionOverlayWindow> RegionOverlayWindow::create(Panels& panels, Screens& screens, MainQueue& mainQueue,
                                                                 const Rect& screenFrame, const Rect& regionFrame,
                                                                 const OverlayColors& colors)
{
    std::unique_ptr<RegionOverlayWindow> window(
        new RegionOverlayWindow(panels, screens, mainQueue, screenFrame, regionFrame, colors));
    window->view_ = std::make_unique<RegionOverlayView>(*window, colors);
    window->connectPanel();
    window->view_->repaint();
    // What is hovered has no part in which clicks the panel takes: those on the controls and no others, by the region
    // that the view gave it. The pointer is looked for only 30 times a second, and a click that comes sooner after its
    // arrival on a control must not fall through to what lies below.
    window->pointerWatcher_ =
        std::make_unique<PointerWatcher>(screens, mainQueue, window->frame_,
                                         [view = window->view_.get()](Point position) { view->pollHover(position); });
    return window;
}

RegionOverlayWindow::RegionOverlayWindow(Panels& panels, Screens& screens, MainQueue& mainQueue,
                                         const Rect& screenFrame, const Rect& regionFrame, const OverlayColors& colors)
    : screens_(screens), screenFrame_(screenFrame), regionFrame_(regionFrame), frame_(frameAtRest()),
      tip_(panels, mainQueue, colors.label),
      panel_(panels.create(
          {.style = PanelStyle::overlay, .frame = frame_, .level = panel_level::frame, .title = "Nimbrale"}))
{}

RegionOverlayWindow::~RegionOverlayWindow() = default;

void RegionOverlayWindow::connectPanel()
{
    panel_->onMouseDown = [this](const MouseEvent& event) { view_->mouseDown(event); };
    panel_->onMouseDragged = [this](const MouseEvent& event) { view_->mouseDragged(event); };
    panel_->onMouseUp = [this](const MouseEvent& event) {
        // Nothing was hovered meanwhile, and the pointer may have left for good.
        pointerWatcher_->restart(frame_);
        view_->mouseUp(event);
    };
    panel_->onBackingScaleChange = [this] { view_->repaint(); };
}

void RegionOverlayWindow::setFrame(const Rect& frame)
{
    tip_.dismiss();
    // What was invalidated so far is in the old frame's coordinates: it is drawn before they change.
    {
        const LayerTransaction transaction(panel_->rootLayer());
    }
    view_->windowWillMove(std::exchange(frame_, frame));
    panel_->setFrame(frame);
    view_->repaint();
    // The controls have moved, though the pointer may not have.
    if (pointerWatcher_)
        pointerWatcher_->restart(frame_);
}

void RegionOverlayWindow::orderFront()
{
    panel_->orderFront();
}

void RegionOverlayWindow::close()
{
    pointerWatcher_.reset();
    tip_.dismiss();
    panel_->orderOut();
}

} // namespace nimbrale
