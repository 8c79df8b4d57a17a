#include "platform/x11/layers/layer_compositor.h"

#include "platform/x11/layers/layer_painting.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace nimbrale::x11 {

namespace {

constexpr Color black{0, 0, 0, 1};
constexpr Color transparent{0, 0, 0, 0};
// More exposures than this many commits behind are drawn anew.
constexpr std::size_t mostRememberedCommits = 32;

/// Joins rectangles wherever painting them as one paints no more pixels, and none of `kept`.
void joinPieces(std::vector<PixelRect>& pieces, const PixelRegion& kept)
{
    for (std::size_t index = 0; index < pieces.size(); ++index) {
        for (std::size_t other = index + 1; other < pieces.size();) {
            const PixelRect joined = pieces[index].unitedWith(pieces[other]);
            PixelRegion touched(joined);
            touched &= kept;
            if (joined.area() > pieces[index].area() + pieces[other].area() || !touched.isEmpty()) {
                ++other;
                continue;
            }
            pieces[index] = joined;
            pieces.erase(pieces.begin() + std::ptrdiff_t(other));
            other = index + 1;
        }
    }
}

/// Rectangles that hold all of the painted items within `dirty` and nothing of `kept`.
std::vector<PixelRect> piecesToPaint(const std::vector<LayerItem>& items, const PixelRegion& dirty,
                                     const PixelRegion& kept)
{
    std::vector<PixelRect> pieces;
    for (const LayerItem& item : items) {
        for (const PixelRect& part : item.parts) {
            PixelRegion needed(part);
            needed &= dirty;
            PixelRegion touched(needed.bounds());
            touched &= kept;
            if (touched.isEmpty()) {
                if (!needed.isEmpty())
                    pieces.push_back(needed.bounds());
                continue;
            }
            needed -= kept;
            const std::vector<PixelRect> rects = needed.rects();
            pieces.insert(pieces.end(), rects.begin(), rects.end());
        }
    }
    joinPieces(pieces, kept);
    return pieces;
}

template <typename Condition>
PixelRegion regionOf(const std::vector<LayerItem>& items, Condition condition)
{
    PixelRegion region;
    for (const LayerItem& item : items) {
        if (condition(item))
            region |= item.region();
    }
    return region;
}

bool isUnpaintable(const LayerItem& item)
{
    return !isPaintable(item);
}

/// Without blending, what only the server can draw is either there or not: at least half opaque, within its shape.
void makeServerItemsSolid(std::vector<LayerItem>& items)
{
    std::erase_if(items, [](const LayerItem& item) { return isUnpaintable(item) && item.opacity < 0.5; });
    for (LayerItem& item : items) {
        if (!isUnpaintable(item))
            continue;
        item.opacity = 1;
        if (item.cornerRadius > 0) {
            PixelRegion inside = roundedRegion(item.frame, item.cornerRadius);
            inside &= item.region();
            item.parts = inside.rects();
            item.cornerRadius = 0;
        }
    }
}

} // namespace

LayerCompositor::LayerCompositor(DrawingResources& resources, MainQueue& queue, Layer& root, const Window& window)
    : connection_(resources.connection()), queue_(queue), root_(root), window_(window.id),
      target_(DrawTarget::forWindow(connection_, window.id, window.depth, window.format)), drawing_(resources),
      shape_(connection_, window.id), reminder_(connection_, queue, window.id)
{}

void LayerCompositor::invalidate(const Rect& area)
{
    if (!isMapped_)
        return;
    dirty_.add(outwardPixels(area, scale_));
    scheduleCommit();
}

void LayerCompositor::invalidateEverything()
{
    if (!isMapped_)
        return;
    dirty_ = window();
    scheduleCommit();
}

void LayerCompositor::scheduleCommit()
{
    // The end of the transaction, and the commit that lays out, draw by themselves.
    if (isCommitPosted_ || !isMapped_ || isInTransaction() || isLayingOut_)
        return;
    isCommitPosted_ = true;
    queue_.post([this, alive = std::weak_ptr(alive_)] {
        if (alive.expired())
            return;
        isCommitPosted_ = false;
        commit();
    });
}

void LayerCompositor::setTranslucency(Translucency translucency)
{
    if (translucency == translucency_)
        return;
    if (translucency == Translucency::composited) {
        painted_ = window();
        tellPainted(painted_);
    }
    if (translucency_ == Translucency::cutOut)
        shape_.remove();
    translucency_ = translucency;
    setBackground();
    invalidateEverything();
}

void LayerCompositor::setHoles(const PixelRegion& holes)
{
    PixelRegion changed(holes_);
    changed |= holes;
    PixelRegion kept(holes_);
    kept &= holes;
    changed -= kept;
    holes_ = holes;
    if (changed.isEmpty() || !isMapped_ || translucency_ != Translucency::composited)
        return;
    dirty_ |= changed;
    scheduleCommit();
}

void LayerCompositor::setBackground()
{
    // Black for an opaque window, transparent for a composited one: what lies in a part that is new or uncovered until
    // the picture comes, instead of what others left in that memory. Where a shape lets others show through, the server
    // must paint nothing, or it would be seen before the picture is.
    const std::uint32_t zero = 0;
    const std::uint32_t nothing = XCB_BACK_PIXMAP_NONE;
    if (translucency_ == Translucency::cutOut)
        xcb_change_window_attributes(connection_.get(), window_, XCB_CW_BACK_PIXMAP, &nothing);
    else
        xcb_change_window_attributes(connection_.get(), window_, XCB_CW_BACK_PIXEL, &zero);
}

void LayerCompositor::willMap()
{
    painted_.clear();
    if (translucency_ == Translucency::cutOut) {
        shape_.set({});
        return;
    }
    // Black for an opaque window, transparent for another: what is seen should the server pause before the picture.
    const std::uint32_t zero = 0;
    xcb_change_window_attributes(connection_.get(), window_, XCB_CW_BACK_PIXEL, &zero);
}

void LayerCompositor::didMap()
{
    setBackground();
    isMapped_ = true;
    drawn_.clear();
    dirty_ = window();
    commit();
}

void LayerCompositor::didUnmap()
{
    isMapped_ = false;
    reminder_.stop();
    dirty_.clear();
}

void LayerCompositor::willConfigure(int dx, int dy)
{
    if (dx == 0 && dy == 0)
        return;
    if (translucency_ == Translucency::cutOut)
        shape_.beginMove(dx, dy);
    if (translucency_ == Translucency::composited) {
        PixelRegion either(painted_);
        either.translate(-dx, -dy);
        either |= painted_;
        tellPainted(either);
    }
}

void LayerCompositor::didConfigure(int width, int height, double scale, int dx, int dy)
{
    if (translucency_ == Translucency::cutOut && (dx != 0 || dy != 0))
        shape_.endMove(dx, dy);
    width_ = width;
    height_ = height;
    scale_ = scale;
    drawing_.setScale(scale);
    painted_.translate(-dx, -dy);
    painted_ &= window();
    if (translucency_ == Translucency::composited)
        tellPainted(painted_);
    invalidateEverything();
}

void LayerCompositor::handleExposure(const PixelRect& pixels, std::uint32_t sequence)
{
    std::erase_if(drawn_, [&](const Drawn& drawn) { return std::int32_t(drawn.after - sequence) < 0; });
    PixelRegion lost(pixels);
    // Whatever was sent after the loss is drawn by now, or about to be.
    for (const Drawn& drawn : drawn_)
        lost -= drawn.region;
    if (lost.isEmpty() || !isMapped_)
        return;
    dirty_ |= lost;
    scheduleCommit();
}

void LayerCompositor::tellPainted(const PixelRegion& painted) const
{
    if (onPaint)
        onPaint(painted);
}

void LayerCompositor::rememberDrawn(const PixelRegion& region)
{
    drawn_.push_back({std::uint32_t(xcb_no_operation(connection_.get()).sequence), region});
    if (drawn_.size() > mostRememberedCommits)
        drawn_.pop_front();
}

void LayerCompositor::commit()
{
    if (!isMapped_)
        return;
    isLayingOut_ = true;
    root_.layoutIfNeeded();
    isLayingOut_ = false;
    if (dirty_.isEmpty())
        return;
    PixelRegion dirty = std::exchange(dirty_, PixelRegion());
    std::vector<LayerItem> items = flattenLayers(root_, scale_);
    growByFilter(items, dirty);
    dirty &= window();
    drawing_.forgetSurfacesExceptOf(items);
    switch (translucency_) {
    case Translucency::opaque:
        drawOpaque(items, dirty);
        break;
    case Translucency::composited:
        drawComposited(items, dirty);
        reminder_.drawn(dirty);
        break;
    case Translucency::cutOut:
        drawCutOut(std::move(items), dirty);
        break;
    }
    connection_.flush();
}

void LayerCompositor::drawOpaque(const std::vector<LayerItem>& items, const PixelRegion& dirty)
{
    PixelRegion uncovered(dirty);
    PixelRegion blended;
    std::vector<VisibleItem> visible;
    for (auto item = items.rbegin(); item != items.rend(); ++item) {
        PixelRegion region = item->region();
        region &= uncovered;
        if (region.isEmpty())
            continue;
        if (item->isOpaque())
            uncovered -= region;
        else
            blended |= region;
        visible.push_back({&*item, region});
    }
    std::reverse(visible.begin(), visible.end());

    rememberDrawn(dirty);
    PixelRegion direct(dirty);
    direct -= blended;
    drawStack(*target_, visible, uncovered, direct);
    if (blended.isEmpty())
        return;
    DrawTarget& scratch = drawing_.scratchFor(*target_, blended.bounds());
    drawStack(scratch, visible, uncovered, blended);
    drawing_.copy(scratch, *target_, blended);
}

void LayerCompositor::drawStack(DrawTarget& target, const std::vector<VisibleItem>& items, const PixelRegion& base,
                                const PixelRegion& region)
{
    PixelRegion bottom(base);
    bottom &= region;
    drawing_.fill(target, bottom, black);
    for (const VisibleItem& visible : items) {
        PixelRegion part(visible.region);
        part &= region;
        if (!part.isEmpty())
            drawing_.draw(target, *visible.item, part);
    }
}

void LayerCompositor::drawComposited(const std::vector<LayerItem>& items, PixelRegion dirty)
{
    // Where a surface is involved the server blends; everything else is painted here.
    PixelRegion blended = regionOf(items, showsContents);
    blended &= dirty;
    blended -= holes_;
    PixelRegion notPainted(blended);
    notPainted |= holes_;
    const std::vector<PixelRect> rects = piecesToPaint(items, dirty, notPainted);
    const std::vector<PaintedPiece> pieces = drawing_.paint(items, rects);
    const PixelRegion paintedNow(rects);
    dirty |= paintedNow;

    PixelRegion either(painted_);
    either |= paintedNow;
    either |= blended;
    tellPainted(either);
    rememberDrawn(dirty);
    PixelRegion clear(painted_);
    clear &= dirty;
    clear -= paintedNow;
    clear -= blended;
    drawing_.fill(*target_, clear, transparent);
    painted_ -= dirty;
    painted_ |= paintedNow;
    painted_ |= blended;
    drawing_.put(*target_, pieces);
    blend(items, blended);
    tellPainted(painted_);
}

void LayerCompositor::drawCutOut(std::vector<LayerItem> items, PixelRegion dirty)
{
    makeServerItemsSolid(items);
    PixelRegion blended = regionOf(items, isUnpaintable);
    blended &= dirty;
    const std::vector<PixelRect> rects = piecesToPaint(items, dirty, blended);
    std::vector<PaintedPiece> pieces = drawing_.paint(items, rects);
    dirty |= PixelRegion(rects);

    PixelRegion shape(shape_.region());
    shape -= dirty;
    shape |= blended;
    for (PaintedPiece& piece : pieces)
        makeSolid(piece.image, piece.pixels.x, piece.pixels.y, shape);
    shape_.set(shape);
    rememberDrawn(dirty);
    drawing_.put(*target_, pieces);
    blend(items, blended);
}

void LayerCompositor::blend(const std::vector<LayerItem>& items, const PixelRegion& region)
{
    if (region.isEmpty())
        return;
    DrawTarget& scratch = drawing_.scratchFor(*target_, region.bounds());
    drawing_.fill(scratch, region, transparent);
    for (const LayerItem& item : items) {
        PixelRegion part = item.region();
        part &= region;
        if (!part.isEmpty())
            drawing_.draw(scratch, item, part);
    }
    drawing_.copy(scratch, *target_, region);
}

} // namespace nimbrale::x11
