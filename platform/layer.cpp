#include "platform/layer.h"

#include <algorithm>
#include <utility>

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
    const bool isResized = frame.size() != frame_.size();
    invalidateTree();
    frame_ = frame;
    invalidateTree();
    if (isResized)
        setNeedsLayout();
}

void Layer::setBackgroundColor(std::optional<Color> color)
{
    backgroundColor_ = color;
    invalidateFrame();
}

void Layer::setContents(std::shared_ptr<const Surface> contents)
{
    const std::shared_ptr<const Surface> before = std::exchange(contents_, std::move(contents));
    if (!before && !contents_)
        return;
    if (!before || !contents_ || before->width() != contents_->width() || before->height() != contents_->height()) {
        invalidateFrame();
        return;
    }
    const Rect whole = contentsRect();
    const double scaleX = whole.width / contents_->width();
    const double scaleY = whole.height / contents_->height();
    for (const PixelRect& part : contents_->changedSince(before->identifier())) {
        const int left = isMirrored_ ? contents_->width() - part.x - part.width : part.x;
        const Rect changed{whole.x + left * scaleX, whole.y + part.y * scaleY, part.width * scaleX,
                           part.height * scaleY};
        const Rect visible = changed.intersectedWith(bounds());
        if (!visible.isEmpty())
            setNeedsDisplay(visible);
    }
}

void Layer::setContentsGravity(ContentsGravity gravity)
{
    if (gravity == contentsGravity_)
        return;
    contentsGravity_ = gravity;
    invalidateFrame();
}

void Layer::setMirrored(bool mirrored)
{
    if (mirrored == isMirrored_)
        return;
    isMirrored_ = mirrored;
    invalidateFrame();
}

Rect Layer::contentsRectIn(const Rect& area) const
{
    if (!contents_)
        return {};
    if (contentsGravity_ == ContentsGravity::resize)
        return area;
    const double scale = std::max(area.width / contents_->width(), area.height / contents_->height());
    const Size size{contents_->width() * scale, contents_->height() * scale};
    return {area.midX() - size.width / 2, area.midY() - size.height / 2, size.width, size.height};
}

void Layer::setCornerRadius(double radius)
{
    if (radius == cornerRadius_)
        return;
    cornerRadius_ = radius;
    invalidateFrame();
}

void Layer::setMasksToBounds(bool masks)
{
    if (masks == masksToBounds_)
        return;
    masksToBounds_ = false; // What is shown without clipping is what changes, in both directions.
    invalidateTree();
    masksToBounds_ = masks;
}

void Layer::setOpacity(double opacity)
{
    if (opacity == opacity_)
        return;
    opacity_ = opacity;
    invalidateTree();
}

void Layer::setHidden(bool hidden)
{
    if (hidden == isHidden_)
        return;
    isHidden_ = false; // A hidden layer invalidates nothing, and both directions must.
    invalidateTree();
    isHidden_ = hidden;
}

void Layer::setZPosition(double position)
{
    if (position == zPosition_)
        return;
    zPosition_ = position;
    invalidateTree();
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
        if (layer->masksToBounds_) {
            inRoot = inRoot.intersectedWith(layer->bounds());
            if (inRoot.isEmpty())
                return;
        }
        // The root fills its window whatever its frame's origin says.
        if (layer->superlayer_)
            inRoot = inRoot.movedBy(layer->frame_.x, layer->frame_.y);
    }
    if (LayerHost* const treeHost = host())
        treeHost->invalidate(inRoot);
}

void Layer::setNeedsLayout()
{
    needsLayout_ = true;
    if (LayerHost* const treeHost = host())
        treeHost->scheduleCommit();
}

void Layer::layoutIfNeeded()
{
    if (needsLayout_ && onLayout)
        onLayout();
    needsLayout_ = false;
    const std::vector<std::shared_ptr<Layer>> sublayers = sublayers_; // Layout may add and remove some.
    for (const auto& sublayer : sublayers)
        sublayer->layoutIfNeeded();
}

void Layer::addSublayer(const std::shared_ptr<Layer>& sublayer)
{
    sublayer->removeFromSuperlayer();
    sublayer->superlayer_ = this;
    sublayers_.push_back(sublayer);
    sublayer->invalidateTree();
    // Whatever in it waits to be laid out could tell no host until now.
    if (LayerHost* const treeHost = host())
        treeHost->scheduleCommit();
}

void Layer::removeFromSuperlayer()
{
    if (!superlayer_)
        return;
    invalidateTree();
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

Rect Layer::reach() const
{
    Rect reach = bounds();
    if (masksToBounds_)
        return reach;
    for (const auto& sublayer : sublayers_) {
        const Rect inside = sublayer->isHidden_ ? Rect{} : sublayer->reach();
        if (!inside.isEmpty())
            reach = reach.unitedWith(inside.movedBy(sublayer->frame_.x, sublayer->frame_.y));
    }
    return reach;
}

} // namespace nimbrale
