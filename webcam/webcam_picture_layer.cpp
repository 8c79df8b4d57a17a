#include "webcam/webcam_picture_layer.h"

#include <algorithm>

namespace nimbrale {

namespace {

constexpr Color black{0, 0, 0, 1};
constexpr double roundedRadius = 0.12;
constexpr double circleRadius = 0.5;

[[nodiscard]] double cornerRadius(WebcamPictureLayer::Shape shape, const Rect& bounds)
{
    const double side = std::min(bounds.width, bounds.height);
    switch (shape) {
    case WebcamPictureLayer::Shape::rectangle:
        return 0;
    case WebcamPictureLayer::Shape::rounded:
        return side * roundedRadius;
    case WebcamPictureLayer::Shape::circle:
        return side * circleRadius;
    }
    return 0;
}

} // namespace

WebcamPictureLayer::WebcamPictureLayer(std::shared_ptr<WebcamPictures> pictures)
    : pictures_(std::move(pictures)), background_(pictures_->background())
{
    layer_->setMasksToBounds(true);
    for (const auto& sublayer : {preview_, processed_}) {
        sublayer->setContentsGravity(ContentsGravity::resizeAspectFill);
        layer_->addSublayer(sublayer);
    }
    layer_->onLayout = [this] { layOut(); };
    layer_->setNeedsLayout();
    preview_->setContents(pictures_->live());
    updateVisibility();
    pictures_->add(*this);
}

WebcamPictureLayer::~WebcamPictureLayer()
{
    pictures_->remove(*this);
    layer_->onLayout = nullptr;
    layer_->removeFromSuperlayer();
}

void WebcamPictureLayer::setShape(Shape shape)
{
    shape_ = shape;
    layer_->setNeedsLayout();
}

void WebcamPictureLayer::setMirrored(bool mirrored)
{
    isMirrored_ = mirrored;
    layer_->setNeedsLayout();
}

void WebcamPictureLayer::setBackground(Background background)
{
    const LayerTransaction transaction(*layer_);
    background_ = background;
    updateVisibility();
}

void WebcamPictureLayer::showLive(const std::shared_ptr<const Surface>& picture)
{
    const LayerTransaction transaction(*layer_);
    preview_->setContents(picture);
}

void WebcamPictureLayer::showNothing()
{
    const LayerTransaction transaction(*layer_);
    preview_->setContents(nullptr);
    processed_->setContents(nullptr);
    updateVisibility();
}

void WebcamPictureLayer::showProcessed(const std::shared_ptr<const Surface>& picture)
{
    const LayerTransaction transaction(*layer_);
    processed_->setContents(picture);
    updateVisibility();
}

void WebcamPictureLayer::updateVisibility()
{
    const bool isOriginal = background_ == Background::original;
    processed_->setHidden(isOriginal);
    if (isOriginal)
        processed_->setContents(nullptr);
    // Until the first processed picture comes, the live one is shown: never nothing.
    preview_->setHidden(processed_->contents() != nullptr);
    // After a change the picture of the background before stays until the first of the new one comes.
    const auto picture = processed_->contents();
    const bool isSeenThrough =
        background_ == Background::transparent || (picture && picture->alpha() != SurfaceAlpha::opaque);
    layer_->setBackgroundColor(isSeenThrough ? std::nullopt : std::optional(black));
}

void WebcamPictureLayer::layOut()
{
    for (const auto& sublayer : {preview_, processed_}) {
        sublayer->setFrame(layer_->bounds());
        sublayer->setMirrored(isMirrored_);
    }
    layer_->setCornerRadius(cornerRadius(shape_, layer_->bounds()));
}

} // namespace nimbrale
