#include "platform/x11/layers/layer_compositor.h"

#include <algorithm>
#include <cmath>

namespace nimbrale::x11 {

namespace {

constexpr Color black{0, 0, 0, 1};
constexpr Color transparent{0, 0, 0, 0};
// More exposures than this many commits behind are drawn anew.
constexpr std::size_t mostRememberedCommits = 32;

std::int64_t areaOf(const PixelRect& rect)
{
    return std::int64_t(rect.width) * rect.height;
}

PixelRect unitedBounds(const PixelRect& left, const PixelRect& right)
{
    const int x = std::min(left.x, right.x);
    const int y = std::min(left.y, right.y);
    return {x, y, std::max(left.x + left.width, right.x + right.width) - x,
            std::max(left.y + left.height, right.y + right.height) - y};
}

/// Joins rectangles wherever painting them as one paints no more pixels.
void joinPieces(std::vector<PixelRect>& pieces)
{
    for (std::size_t index = 0; index < pieces.size(); ++index) {
        for (std::size_t other = index + 1; other < pieces.size();) {
            const PixelRect joined = unitedBounds(pieces[index], pieces[other]);
            if (areaOf(joined) > areaOf(pieces[index]) + areaOf(pieces[other])) {
                ++other;
                continue;
            }
            pieces[index] = joined;
            pieces.erase(pieces.begin() + std::ptrdiff_t(other));
            other = index + 1;
        }
    }
}

/// A stretched picture mixes neighbouring pixels: what is dirty in one reaches as far as the filter does.
void growByFilter(const std::vector<LayerItem>& items, PixelRegion& dirty)
{
    for (const LayerItem& item : items) {
        if (item.kind != LayerItemKind::contents)
            continue;
        const Surface& surface = *item.layer->contents();
        if (surface.width() == item.frame.width && surface.height() == item.frame.height)
            continue;
        const int reach = 1 + int(std::ceil(std::max(double(item.frame.width) / surface.width(),
                                                     double(item.frame.height) / surface.height())));
        PixelRegion inside = item.region();
        inside &= dirty;
        PixelRegion grown;
        for (const PixelRect& rect : inside.rects())
            grown.add(rect.x - reach, rect.y - reach, rect.width + 2 * reach, rect.height + 2 * reach);
        grown &= item.region();
        dirty |= grown;
    }
}

/// Without blending, a picture is either there or not.
void makeContentsSolid(std::vector<LayerItem>& items)
{
    std::erase_if(items,
                  [](const LayerItem& item) { return item.kind == LayerItemKind::contents && item.opacity < 0.5; });
    for (LayerItem& item : items) {
        if (item.kind == LayerItemKind::contents)
            item.opacity = 1;
    }
}

PixelRegion contentsRegion(const std::vector<LayerItem>& items)
{
    PixelRegion region;
    for (const LayerItem& item : items) {
        if (item.kind == LayerItemKind::contents)
            region |= item.region();
    }
    return region;
}

} // namespace

LayerCompositor::LayerCompositor(Connection& connection, MainQueue& queue, Layer& root, const Window& window)
    : connection_(connection), queue_(queue), root_(root), window_(window.id),
      target_(DrawTarget::forWindow(connection, window.id, window.depth, window.format)), drawing_(connection),
      shape_(connection, window.id)
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
    if (translucency_ == Translucency::cutOut)
        shape_.remove();
    translucency_ = translucency;
    if (translucency_ == Translucency::composited)
        painted_ = window();
    setBackground();
    invalidateEverything();
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
    dirty_.clear();
}

void LayerCompositor::willConfigure(int dx, int dy)
{
    if (translucency_ == Translucency::cutOut && (dx != 0 || dy != 0))
        shape_.beginMove(dx, dy);
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
    if (translucency_ == Translucency::opaque)
        drawOpaque(items, dirty);
    else
        drawSeeThrough(std::move(items), dirty);
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

void LayerCompositor::drawSeeThrough(std::vector<LayerItem> items, PixelRegion dirty)
{
    const bool isCutOut = translucency_ == Translucency::cutOut;
    if (isCutOut)
        makeContentsSolid(items);
    const std::vector<PixelRect> rects = piecesToPaint(items, dirty);
    std::vector<PaintedPiece> pieces = drawing_.paint(items, rects);
    const PixelRegion paintedNow(rects);
    dirty |= paintedNow;
    PixelRegion contents = contentsRegion(items);
    contents &= dirty;

    if (isCutOut) {
        PixelRegion shape(shape_.region());
        shape -= dirty;
        shape |= contents;
        for (PaintedPiece& piece : pieces)
            makeSolid(piece.image, piece.pixels.x, piece.pixels.y, shape);
        shape_.set(shape);
        rememberDrawn(dirty);
    } else {
        rememberDrawn(dirty);
        PixelRegion clear(painted_);
        clear &= dirty;
        clear -= paintedNow;
        clear -= contents;
        drawing_.fill(*target_, clear, transparent);
        painted_ -= dirty;
        painted_ |= paintedNow;
        painted_ |= contents;
    }
    drawing_.put(*target_, pieces);
    blendContents(items, contents);
}

void LayerCompositor::blendContents(const std::vector<LayerItem>& items, const PixelRegion& region)
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

std::vector<PixelRect> LayerCompositor::piecesToPaint(const std::vector<LayerItem>& items,
                                                      const PixelRegion& dirty) const
{
    std::vector<PixelRect> pieces;
    for (const LayerItem& item : items) {
        if (item.kind == LayerItemKind::contents)
            continue;
        for (const PixelRect& part : item.parts) {
            PixelRegion needed(part);
            needed &= dirty;
            if (!needed.isEmpty())
                pieces.push_back(needed.bounds());
        }
    }
    joinPieces(pieces);
    return pieces;
}

} // namespace nimbrale::x11
