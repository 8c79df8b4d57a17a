#include "share/frame_view.h"

#include "platform/message_card.h"

#include <QPainter>

#include <cmath>
#include <utility>

namespace nimbrale {

namespace {

constexpr Color black{0, 0, 0, 1};
constexpr double webcamZPosition = 1;
constexpr double cardZPosition = 2;

[[nodiscard]] Rect scaled(const Rect& rect, double zoom)
{
    return {rect.x * zoom, rect.y * zoom, rect.width * zoom, rect.height * zoom};
}

void fill(const Layer& superlayer, Layer& card)
{
    if (card.frame() == superlayer.bounds())
        return;
    card.setFrame(superlayer.bounds());
    card.setCoverage({card.bounds()});
    card.setNeedsDisplay(card.bounds());
}

void drawCard(QPainter& painter, const Rect& area, const QString& text)
{
    const MessageCard card(text, area.width, area.height);
    card.draw(painter, {static_cast<int>(std::lround((area.width - card.size().width()) / 2)),
                        static_cast<int>(std::lround((area.height - card.size().height()) / 2))});
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
    removeCard();
    frameRegion_ = frame.region;
    frameLayer_->setContents(frame.surface);
    layOutFrame();
}

void FrameView::showCard(const QString& text)
{
    const LayerTransaction transaction(root_);
    removeCard();
    frameLayer_->setContents(nullptr);
    cardLayer_ = std::make_shared<Layer>();
    cardLayer_->setBackgroundColor(black);
    cardLayer_->setZPosition(cardZPosition);
    cardLayer_->setPainter(
        [layer = cardLayer_.get(), text](QPainter& painter, const Rect&) { drawCard(painter, layer->bounds(), text); });
    root_.addSublayer(cardLayer_);
    root_.onLayout = [&root = root_, card = cardLayer_] { fill(root, *card); };
    fill(root_, *cardLayer_);
}

void FrameView::removeCard()
{
    if (!cardLayer_)
        return;
    root_.onLayout = nullptr;
    cardLayer_->removeFromSuperlayer();
    cardLayer_.reset();
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
    webcamLayer_->layer()->setOpacity(webcam.isFaded ? fadedWebcamOpacity : 1);
}

void FrameView::layOutFrame()
{
    frameLayer_->setFrame(scaled(frameRegion_.movedBy(-region_.x, -region_.y), zoom_));
}

} // namespace nimbrale
