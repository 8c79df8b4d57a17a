#include "platform/layer.h"

#include <algorithm>

namespace nimbrale {

Layer::~Layer()
{
    for (const auto& sublayer : sublayers_)
        sublayer->superlayer_ = nullptr;
}

void Layer::setFrame(const Rect& frame)
{
    if (frame == frame_)
        return;
    invalidateFrame();
    frame_ = frame;
    invalidateFrame();
}

void Layer::setBackgroundColor(std::optional<Color> color)
{
    backgroundColor_ = color;
    invalidateFrame();
}

void Layer::setContents(std::shared_ptr<const Surface> contents)
{
    const bool isSameStorage = contents && contents_ && contents->storage() == contents_->storage();
    contents_ = std::move(contents);
    if (!isSameStorage) {
        invalidateFrame();
        return;
    }
    const double scaleX = frame_.width / contents_->width();
    const double scaleY = frame_.height / contents_->height();
    for (const PixelRect& part : contents_->changed())
        setNeedsDisplay({part.x * scaleX, part.y * scaleY, part.width * scaleX, part.height * scaleY});
}

void Layer::setOpacity(double opacity)
{
    if (opacity == opacity_)
        return;
    opacity_ = opacity;
    invalidateFrame();
}

void Layer::setHidden(bool hidden)
{
    if (hidden == isHidden_)
        return;
    isHidden_ = false; // A hidden layer invalidates nothing, and both directions must.
    invalidateFrame();
    isHidden_ = hidden;
}

void Layer::setZPosition(double position)
{
    if (position == zPosition_)
        return;
    zPosition_ = position;
    invalidateFrame();
}

void Layer::setPainter(Painter painter)
{
    painter_ = std::move(painter);
    invalidateFrame();
}

void Layer::setCoverage(std::vector<Rect> coverage)
{
    coverage_ = std::move(coverage);
}

void Layer::setNeedsDisplay(const Rect& area) const
{
    Rect inRoot = area;
    for (const Layer* layer = this; layer; layer = layer->superlayer_) {
        if (layer->isHidden_)
            return;
        // The root fills its window whatever its frame's origin says.
        if (layer->superlayer_)
            inRoot = inRoot.movedBy(layer->frame_.x, layer->frame_.y);
    }
    if (LayerHost* const shower = host())
        shower->invalidate(inRoot);
}

void Layer::addSublayer(const std::shared_ptr<Layer>& sublayer)
{
    sublayer->removeFromSuperlayer();
    sublayer->superlayer_ = this;
    sublayers_.push_back(sublayer);
    sublayer->invalidateFrame();
}

void Layer::removeFromSuperlayer()
{
    if (!superlayer_)
        return;
    invalidateFrame();
    Layer* const parent = superlayer_;
    superlayer_ = nullptr;
    std::erase_if(parent->sublayers_, [this](const auto& sibling) { return sibling.get() == this; });
}

std::vector<Layer*> Layer::sublayersInOrder() const
{
    std::vector<Layer*> ordered;
    ordered.reserve(sublayers_.size());
    for (const auto& sublayer : sublayers_)
        ordered.push_back(sublayer.get());
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const Layer* left, const Layer* right) { return left->zPosition_ < right->zPosition_; });
    return ordered;
}

LayerHost* Layer::host() const
{
    const Layer* root = this;
    while (root->superlayer_)
        root = root->superlayer_;
    return root->host_;
}

void Layer::invalidateFrame() const
{
    setNeedsDisplay({0, 0, frame_.width, frame_.height});
}

} // namespace nimbrale
