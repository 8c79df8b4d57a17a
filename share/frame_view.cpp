#include "share/frame_view.h"

namespace nimbrale {

namespace {

constexpr Color black{0, 0, 0, 1};
constexpr double webcamZPosition = 1;
constexpr double fadedOpacity = 0.2;

[[nodiscard]] Rect scaled(const Rect& rect, double zoom)
{
    return {rect.x * zoom, rect.y * zoom, rect.width * zoom, rect.height * zoom};
}

} // namespace

FrameView::FrameView(Layer& root, const Rect& region, double zoom)
    : root_(root), zoom_(zoom), frameLayer_(std::make_shared<Layer>()), region_(region)
{
    root_.setBackgroundColor(black);
    root_.addSublayer(frameLayer_);
}

void FrameView::show(const Frame& frame)
{
    const LayerTransaction transaction(root_);
    frameRegion_ = frame.region;
    frameLayer_->setContents(frame.surface);
    layOutFrame();
}

void FrameView::setRegion(const Rect& region)
{
    const LayerTransaction transaction(root_);
    region_ = region;
    layOutFrame();
}

void FrameView::setWebcam(const WebcamAppearance& webcam)
{
    const LayerTransaction transaction(root_);
    if (webcamLayer_ && webcamLayer_->pictures() != webcam.camera)
        webcamLayer_.reset();
    if (!webcam.camera)
        return;
    if (!webcamLayer_) {
        webcamLayer_ = std::make_unique<WebcamPictureLayer>(webcam.camera);
        webcamLayer_->layer()->setZPosition(webcamZPosition);
        root_.addSublayer(webcamLayer_->layer());
    }
    webcamLayer_->setShape(webcam.shape);
    webcamLayer_->setMirrored(webcam.mirrored);
    webcamLayer_->layer()->setFrame(scaled(webcam.box, zoom_));
    webcamLayer_->layer()->setOpacity(webcam.isFaded ? fadedOpacity : 1);
}

void FrameView::layOutFrame()
{
    frameLayer_->setFrame(scaled(frameRegion_.movedBy(-region_.x, -region_.y), zoom_));
}

} // namespace nimbrale
