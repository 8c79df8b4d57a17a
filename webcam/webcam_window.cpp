#include "webcam/webcam_window.h"

#include <utility>

namespace nimbrale {

std::unique_ptr<WebcamWindow> WebcamWindow::create(Panels& panels, Screens& screens, MainQueue& mainQueue,
                                                   std::shared_ptr<WebcamPictures> pictures, const Rect& frame,
                                                   const OverlayColors& colors)
{
    std::unique_ptr<WebcamWindow> window(new WebcamWindow(panels, screens, mainQueue, frame, colors));
    window->view_ = std::make_unique<WebcamView>(*window, std::move(pictures), mainQueue, colors);
    window->connectPanel();
    window->pointerWatcher_ =
        std::make_unique<PointerWatcher>(screens, mainQueue, window->frame_,
                                         [view = window->view_.get()](Point position) { view->pollHover(position); });
    return window;
}

WebcamWindow::WebcamWindow(Panels& panels, Screens& screens, MainQueue& mainQueue, const Rect& frame,
                           const OverlayColors& colors)
    : screens_(screens), frame_(frame), tip_(panels, mainQueue, colors.label),
      panel_(panels.create(
          {.style = PanelStyle::overlay, .frame = frame, .level = panel_level::webcam, .title = "Nimbrale webcam"}))
{}

WebcamWindow::~WebcamWindow() = default;

void WebcamWindow::connectPanel()
{
    panel_->onMouseDown = [this](const MouseEvent& event) { view_->mouseDown(event); };
    panel_->onMouseDragged = [this](const MouseEvent& event) { view_->mouseDragged(event); };
    panel_->onMouseUp = [this](const MouseEvent& event) {
        // Nothing was hovered meanwhile, and the pointer may have left for good.
        pointerWatcher_->restart(frame_);
        view_->mouseUp(event);
    };
    panel_->onBackingScaleChange = [this] { view_->layOut(); };
}

void WebcamWindow::setFrame(const Rect& frame)
{
    if (frame == frame_)
        return;
    tip_.dismiss();
    frame_ = frame;
    panel_->setFrame(frame);
    view_->layOut();
    // The picture has moved, though the pointer may not have.
    if (pointerWatcher_)
        pointerWatcher_->restart(frame_);
}

void WebcamWindow::applyAppearance(AppSettings::WebcamShape shape, bool mirrored, bool fadesOnHover)
{
    isSquare_ = shape == AppSettings::WebcamShape::circle;
    view_->applyAppearance(shape, mirrored, fadesOnHover);
}

Rect WebcamWindow::screenFrame() const
{
    for (const Screen& screen : screens_.screens()) {
        if (screen.frame.contains({frame_.midX(), frame_.midY()}))
            return screen.frame;
    }
    return frame_;
}

void WebcamWindow::orderFront()
{
    panel_->orderFront();
}

void WebcamWindow::close()
{
    pointerWatcher_.reset();
    tip_.dismiss();
    panel_->orderOut();
}

} // namespace nimbrale
