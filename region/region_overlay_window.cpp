#include "region/region_overlay_window.h"

#include <chrono>
#include <utility>

namespace nimbrale {

namespace {

constexpr std::chrono::nanoseconds hoverPollInterval{std::chrono::nanoseconds(std::chrono::seconds(1)) / 30};

} // namespace

std::shared_ptr<RegionOverlayWindow> RegionOverlayWindow::create(Panels& panels, Screens& screens, MainQueue& mainQueue,
                                                                 const Rect& screenFrame, const Rect& regionFrame,
                                                                 const OverlayColors& colors)
{
    std::shared_ptr<RegionOverlayWindow> window(
        new RegionOverlayWindow(panels, screens, mainQueue, screenFrame, regionFrame));
    window->view_ = std::make_unique<RegionOverlayView>(*window, colors);
    window->connectPanel();
    window->view_->repaint();
    // From here on the panel takes clicks on the controls and nowhere else, by the region that the view gave it. It
    // is never told to ignore the mouse again: the pointer is looked at only 30 times a second, and a click that
    // comes sooner after the pointer's arrival on a control must not fall through to what lies below.
    window->panel_->setIgnoresMouseEvents(false);
    window->mouseMoves_ = screens.observeMouse([raw = window.get()] { raw->watchPointer(); });
    window->watchPointer();
    return window;
}

RegionOverlayWindow::RegionOverlayWindow(Panels& panels, Screens& screens, MainQueue& mainQueue,
                                         const Rect& screenFrame, const Rect& regionFrame)
    : screens_(screens), mainQueue_(mainQueue), screenFrame_(screenFrame), regionFrame_(regionFrame),
      frame_(frameAtRest()), panel_(panels.create({.style = PanelStyle::overlay,
                                                   .frame = frame_,
                                                   .level = panel_level::frame,
                                                   .ignoresMouseEvents = true,
                                                   .title = "Nimbrale"}))
{}

RegionOverlayWindow::~RegionOverlayWindow() = default;

void RegionOverlayWindow::connectPanel()
{
    panel_->onMouseDown = keepingAlive(&RegionOverlayView::mouseDown);
    panel_->onMouseDragged = keepingAlive(&RegionOverlayView::mouseDragged);
    panel_->onMouseUp = keepingAlive(&RegionOverlayView::mouseUp);
    panel_->onBackingScaleChange = [this] { view_->repaint(); };
}

void RegionOverlayWindow::watchPointer()
{
    lastMouseLocation_.reset();
    if (!mouseTimer_)
        mouseTimer_ = mainQueue_.scheduleRepeating(hoverPollInterval, [this] { lookAtPointer(); });
}

void RegionOverlayWindow::lookAtPointer()
{
    const Point location = screens_.mouseLocation();
    view_->pollHover(location);
    // What rests needs no further look, and each would wake the processor, until the pointer or the frame moves.
    if (mouseMoves_ && lastMouseLocation_ == location)
        mouseTimer_.reset();
    lastMouseLocation_ = location;
}

std::function<void(const MouseEvent&)>
RegionOverlayWindow::keepingAlive(void (RegionOverlayView::*handler)(const MouseEvent&))
{
    return [weak = weak_from_this(), handler](const MouseEvent& event) {
        auto window = weak.lock();
        if (!window)
            return;
        ((*window->view_).*handler)(event);
        // A button may have closed the frame. The panel is still in the middle of reporting this event, so that it
        // must not go before the next turn of the queue.
        if (window.use_count() == 1) {
            MainQueue& queue = window->mainQueue_;
            queue.post([last = std::move(window)] {});
        }
    };
}

void RegionOverlayWindow::setFrame(const Rect& frame)
{
    // What was invalidated so far is in the old frame's coordinates: it is drawn before they change.
    {
        const LayerTransaction transaction(panel_->rootLayer());
    }
    view_->windowWillMove(std::exchange(frame_, frame));
    panel_->setFrame(frame);
    view_->repaint();
    watchPointerAgain();
}

void RegionOverlayWindow::orderFront()
{
    panel_->orderFront();
}

void RegionOverlayWindow::setRegionFrame(const Rect& regionFrame)
{
    regionFrame_ = regionFrame;
    watchPointerAgain();
}

// The controls have moved, though the pointer may not have.
void RegionOverlayWindow::watchPointerAgain()
{
    if (isWatchingPointer())
        watchPointer();
}

void RegionOverlayWindow::close()
{
    mouseMoves_.reset();
    mouseTimer_.reset();
    panel_->orderOut();
}

} // namespace nimbrale
