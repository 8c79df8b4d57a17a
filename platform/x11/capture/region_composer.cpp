#include "platform/x11/capture/region_composer.h"

#include "platform/x11/server/handles.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace nimbrale::x11 {

namespace {

/// Past this many rectangles a clip is cheaper than a request for each.
constexpr std::size_t maximumCopies = 32;

/// The server takes no request of any length.
constexpr std::size_t maximumClipRectangles = 16384;

PixelRect boundsOf(const std::vector<xcb_rectangle_t>& rects)
{
    PixelRect bounds;
    for (const xcb_rectangle_t& rect : rects)
        bounds = bounds.unitedWith({rect.x, rect.y, rect.width, rect.height});
    return bounds;
}

/// Calls `use` with the rectangles in the target's pixels, some at a time.
template <typename Use>
void inParts(const PixelRegion& region, PixelPoint origin, Use use)
{
    const std::vector<xcb_rectangle_t> rects = region.serverRects(-origin.x, -origin.y);
    for (std::size_t begin = 0; begin < rects.size(); begin += maximumClipRectangles) {
        const std::size_t end = std::min(rects.size(), begin + maximumClipRectangles);
        use(std::vector<xcb_rectangle_t>(rects.begin() + std::ptrdiff_t(begin), rects.begin() + std::ptrdiff_t(end)));
    }
}

} // namespace

RegionComposer::RegionComposer(Connection& connection)
    : connection_(connection), context_(connection, connection.newId()),
      inferiorsContext_(connection, connection.newId())
{
    const std::uint32_t withoutExposures[] = {0};
    xcb_create_gc(connection_.get(), context_.get(), connection_.root(), XCB_GC_GRAPHICS_EXPOSURES, withoutExposures);
    const std::uint32_t withInferiors[] = {XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS, 0};
    xcb_create_gc(connection_.get(), inferiorsContext_.get(), connection_.root(),
                  XCB_GC_SUBWINDOW_MODE | XCB_GC_GRAPHICS_EXPOSURES, withInferiors);
}

void RegionComposer::compose(const CompositionTarget& target, const PixelRegion& dirty, const DesktopParts& parts,
                             const WindowTest& isIncluded, std::optional<PointerPlace> pointer, const PixelRegion* seen)
{
    target_ = target;
    PixelRegion rest(dirty);
    std::vector<std::pair<const CapturedWindow*, PixelRegion>> translucent;
    for (auto item = parts.windows.rbegin(); item != parts.windows.rend() && !rest.isEmpty(); ++item) {
        const CapturedWindow& window = **item;
        if (!window.isDrawable() || !isIncluded(window) || !window.bounds().intersects(rest.bounds()))
            continue;
        PixelRegion visible = window.partOf(rest);
        visible -= parts.unpainted.placeOf(window);
        if (visible.isEmpty())
            continue;
        PixelRegion painted(visible);
        if (seen) {
            painted &= window.youngUntil ? PixelRegion() : PixelRegion(window.clientBounds());
            PixelRegion frame(visible);
            frame -= painted;
            frame -= *seen;
            fillBlack(frame);
        }
        if (!window.isOpaque(parts.compositing)) {
            translucent.emplace_back(&window, painted);
            continue;
        }
        paint(window, painted, false);
        rest -= visible;
    }
    if (seen && !parts.background.isKnown())
        rest -= *seen;
    if (!rest.isEmpty())
        paintBackground(rest, parts.background);
    for (auto item = translucent.rbegin(); item != translucent.rend(); ++item)
        paint(*item->first, item->second, true);
    if (pointer)
        paintPointer(dirty, parts.pointer, *pointer);
}

void RegionComposer::copyScreen(const CompositionTarget& target, const PixelRegion& dirty, const PixelRect& rootBounds,
                                const PointerImage& image, std::optional<PointerPlace> pointer)
{
    target_ = target;
    PixelRegion beyond(dirty);
    beyond -= PixelRegion(rootBounds);
    fillBlack(beyond);
    copy(connection_.root(), {}, inferiorsContext_.get(), dirty);
    if (pointer)
        paintPointer(dirty, image, *pointer);
}

void RegionComposer::copyPixmap(const CompositionTarget& target, const PixelRegion& dirty, xcb_pixmap_t pixmap,
                                PixelPoint origin, const PointerImage& image, std::optional<PointerPlace> pointer)
{
    target_ = target;
    copy(pixmap, origin, context_.get(), dirty);
    if (pointer)
        paintPointer(dirty, image, *pointer);
}

void RegionComposer::paint(const CapturedWindow& window, const PixelRegion& clip, bool isOver)
{
    if (window.isOnScreenOnly()) {
        paintFromScreen(window, clip);
        return;
    }
    if (!isOver && window.depth == connection_.screen().root_depth) {
        copy(window.pixmap, {window.x, window.y}, context_.get(), clip);
        return;
    }
    xcb_connection_t* const raw = connection_.get();
    OwnedPicture mask;
    if (isOver && window.opacity != 0xffffffff) {
        mask = OwnedPicture(connection_, connection_.newId());
        xcb_render_create_solid_fill(raw, mask.get(), {0, 0, 0, static_cast<std::uint16_t>(window.opacity >> 16)});
    }
    drawClipped(clip, [&](const PixelRect& target) {
        const PixelRect from = target.movedBy(target_.origin.x - window.x, target_.origin.y - window.y);
        mayFail(raw, xcb_render_composite_checked(
                         raw, isOver ? XCB_RENDER_PICT_OP_OVER : XCB_RENDER_PICT_OP_SRC, window.picture, mask.get(),
                         target_.picture, static_cast<std::int16_t>(from.x), static_cast<std::int16_t>(from.y), 0, 0,
                         static_cast<std::int16_t>(target.x), static_cast<std::int16_t>(target.y),
                         static_cast<std::uint16_t>(target.width), static_cast<std::uint16_t>(target.height)));
    });
}

void RegionComposer::paintFromScreen(const CapturedWindow& window, const PixelRegion& clip)
{
    fillBlack(clip);
    // The server copies nothing where another window covers this one, an own one for instance, and nothing of the
    // border; nor anything between different depths.
    if (window.depth == connection_.screen().root_depth)
        copy(window.id, {window.x + window.borderWidth, window.y + window.borderWidth}, inferiorsContext_.get(), clip);
}

void RegionComposer::paintBackground(const PixelRegion& clip, const RootBackground& background)
{
    if (background.standIn() != XCB_NONE) {
        paintRoot(clip, background);
        return;
    }
    if (background.wallpaper() == XCB_NONE) {
        fillBlack(clip);
        return;
    }
    xcb_connection_t* const raw = connection_.get();
    drawClipped(clip, [&](const PixelRect& target) {
        const PixelRect from = target.movedBy(target_.origin.x, target_.origin.y);
        mayFail(raw, xcb_render_composite_checked(
                         raw, XCB_RENDER_PICT_OP_SRC, background.wallpaper(), XCB_NONE, target_.picture,
                         static_cast<std::int16_t>(from.x), static_cast<std::int16_t>(from.y), 0, 0,
                         static_cast<std::int16_t>(target.x), static_cast<std::int16_t>(target.y),
                         static_cast<std::uint16_t>(target.width), static_cast<std::uint16_t>(target.height)));
    });
}

void RegionComposer::paintRoot(const PixelRegion& clip, const RootBackground& background)
{
    // The stand-in is nobody else's: more of it than needed may be cleared.
    const std::vector<PixelRect> cleared =
        clip.count() > static_cast<int>(maximumCopies) ? std::vector<PixelRect>{clip.bounds()} : clip.rects();
    for (const PixelRect& rect : cleared)
        xcb_clear_area(connection_.get(), 0, background.standIn(), static_cast<std::int16_t>(rect.x),
                       static_cast<std::int16_t>(rect.y), static_cast<std::uint16_t>(rect.width),
                       static_cast<std::uint16_t>(rect.height));
    PixelRegion beyond(clip);
    beyond -= PixelRegion(background.rootBounds());
    fillBlack(beyond);
    copy(background.standIn(), {}, context_.get(), clip);
    // Programs draw on the root itself, too. The server copies nothing where a window covers the root, so that no own
    // window can get in by this, wherever it has gone meanwhile.
    copy(connection_.root(), {}, context_.get(), clip);
}

void RegionComposer::paintPointer(const PixelRegion& dirty, const PointerImage& image, const PointerPlace& place)
{
    if (image.picture() == XCB_NONE)
        return;
    const PixelRect coverage = image.coverage(place.rootX, place.rootY);
    PixelRegion clip(coverage);
    clip &= dirty;
    if (clip.isEmpty())
        return;
    drawClipped(clip, [&](const PixelRect& target) {
        const PixelRect from = target.movedBy(target_.origin.x - coverage.x, target_.origin.y - coverage.y);
        xcb_render_composite(connection_.get(), XCB_RENDER_PICT_OP_OVER, image.picture(), XCB_NONE, target_.picture,
                             static_cast<std::int16_t>(from.x), static_cast<std::int16_t>(from.y), 0, 0,
                             static_cast<std::int16_t>(target.x), static_cast<std::int16_t>(target.y),
                             static_cast<std::uint16_t>(target.width), static_cast<std::uint16_t>(target.height));
    });
}

void RegionComposer::fillBlack(const PixelRegion& region)
{
    drawClipped(region, [&](const PixelRect& target) {
        const xcb_rectangle_t rect{static_cast<std::int16_t>(target.x), static_cast<std::int16_t>(target.y),
                                   static_cast<std::uint16_t>(target.width), static_cast<std::uint16_t>(target.height)};
        xcb_render_fill_rectangles(connection_.get(), XCB_RENDER_PICT_OP_SRC, target_.picture, {0, 0, 0, 0xffff}, 1,
                                   &rect);
    });
}

void RegionComposer::copy(xcb_drawable_t from, PixelPoint origin, xcb_gcontext_t context, const PixelRegion& region)
{
    xcb_connection_t* const raw = connection_.get();
    if (region.count() <= static_cast<int>(maximumCopies)) {
        for (const PixelRect& rect : region.rects())
            copyArea(from, origin, context, rect.movedBy(-target_.origin.x, -target_.origin.y));
        return;
    }
    inParts(region, target_.origin, [&](const std::vector<xcb_rectangle_t>& rects) {
        xcb_set_clip_rectangles(raw, XCB_CLIP_ORDERING_YX_BANDED, context, 0, 0,
                                static_cast<std::uint32_t>(rects.size()), rects.data());
        copyArea(from, origin, context, boundsOf(rects));
    });
    const std::uint32_t none = XCB_NONE;
    xcb_change_gc(raw, context, XCB_GC_CLIP_MASK, &none);
}

void RegionComposer::copyArea(xcb_drawable_t from, PixelPoint origin, xcb_gcontext_t context, const PixelRect& area)
{
    const PixelRect source = area.movedBy(target_.origin.x - origin.x, target_.origin.y - origin.y);
    mayFail(connection_.get(),
            xcb_copy_area_checked(connection_.get(), from, target_.pixmap, context, static_cast<std::int16_t>(source.x),
                                  static_cast<std::int16_t>(source.y), static_cast<std::int16_t>(area.x),
                                  static_cast<std::int16_t>(area.y), static_cast<std::uint16_t>(area.width),
                                  static_cast<std::uint16_t>(area.height)));
}

template <typename Draw>
void RegionComposer::drawClipped(const PixelRegion& region, Draw draw)
{
    inParts(region, target_.origin, [&](const std::vector<xcb_rectangle_t>& rects) {
        xcb_render_set_picture_clip_rectangles(connection_.get(), target_.picture, 0, 0,
                                               static_cast<std::uint32_t>(rects.size()), rects.data());
        draw(boundsOf(rects));
    });
}

} // namespace nimbrale::x11
