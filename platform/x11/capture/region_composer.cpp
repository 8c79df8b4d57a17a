#include "platform/x11/capture/region_composer.h"

#include "platform/x11/server/handles.h"

#include <utility>
#include <vector>

namespace nimbrale::x11 {

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
                             const WindowTest& isIncluded, std::optional<PointerPlace> pointer)
{
    target_ = target;
    PixelRegion rest(dirty);
    std::vector<std::pair<const CapturedWindow*, PixelRegion>> translucent;
    const auto& windows = parts.stack.windows();
    for (auto item = windows.rbegin(); item != windows.rend() && !rest.isEmpty(); ++item) {
        const CapturedWindow& window = **item;
        if (!window.isDrawable() || !isIncluded(window))
            continue;
        PixelRegion visible = window.extents();
        visible &= rest;
        if (visible.isEmpty())
            continue;
        if (!window.isOpaque(parts.compositing)) {
            translucent.emplace_back(&window, visible);
            continue;
        }
        paint(window, visible, false);
        rest -= visible;
    }
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
    copy(connection_.root(), inferiorsContext_.get(), dirty);
    if (pointer)
        paintPointer(dirty, image, *pointer);
}

void RegionComposer::paint(const CapturedWindow& window, const PixelRegion& clip, bool isOver)
{
    xcb_connection_t* const raw = connection_.get();
    const int targetX = window.x - target_.origin.x;
    const int targetY = window.y - target_.origin.y;
    if (!isOver && window.depth == connection_.screen().root_depth) {
        for (const xcb_rectangle_t& rect : clip.serverRects(-window.x, -window.y))
            mayFail(raw, xcb_copy_area_checked(raw, window.pixmap, target_.pixmap, context_.get(), rect.x, rect.y,
                                               static_cast<std::int16_t>(rect.x + targetX),
                                               static_cast<std::int16_t>(rect.y + targetY), rect.width, rect.height));
        return;
    }
    clipTo(clip);
    OwnedPicture mask;
    if (isOver && window.opacity != 0xffffffff) {
        mask = OwnedPicture(connection_, connection_.newId());
        xcb_render_create_solid_fill(raw, mask.get(), {0, 0, 0, static_cast<std::uint16_t>(window.opacity >> 16)});
    }
    const PixelRect bounds = clip.bounds().movedBy(-window.x, -window.y);
    mayFail(raw, xcb_render_composite_checked(
                     raw, isOver ? XCB_RENDER_PICT_OP_OVER : XCB_RENDER_PICT_OP_SRC, window.picture, mask.get(),
                     target_.picture, static_cast<std::int16_t>(bounds.x), static_cast<std::int16_t>(bounds.y), 0, 0,
                     static_cast<std::int16_t>(bounds.x + targetX), static_cast<std::int16_t>(bounds.y + targetY),
                     static_cast<std::uint16_t>(bounds.width), static_cast<std::uint16_t>(bounds.height)));
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
    clipTo(clip);
    const PixelRect bounds = clip.bounds();
    const PixelRect target = bounds.movedBy(-target_.origin.x, -target_.origin.y);
    xcb_connection_t* const raw = connection_.get();
    mayFail(raw, xcb_render_composite_checked(
                     raw, XCB_RENDER_PICT_OP_SRC, background.wallpaper(), XCB_NONE, target_.picture,
                     static_cast<std::int16_t>(bounds.x), static_cast<std::int16_t>(bounds.y), 0, 0,
                     static_cast<std::int16_t>(target.x), static_cast<std::int16_t>(target.y),
                     static_cast<std::uint16_t>(target.width), static_cast<std::uint16_t>(target.height)));
}

void RegionComposer::paintRoot(const PixelRegion& clip, const RootBackground& background)
{
    for (const xcb_rectangle_t& rect : clip.serverRects())
        xcb_clear_area(connection_.get(), 0, background.standIn(), rect.x, rect.y, rect.width, rect.height);
    PixelRegion beyond(clip);
    beyond -= PixelRegion(background.rootBounds());
    fillBlack(beyond);
    copy(background.standIn(), context_.get(), clip);
    // Programs draw on the root itself, too. The server copies nothing where a window covers the root, so that no own
    // window can get in by this, wherever it has gone meanwhile.
    copy(connection_.root(), context_.get(), clip);
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
    clipTo(clip);
    const PixelRect target = coverage.movedBy(-target_.origin.x, -target_.origin.y);
    xcb_render_composite(connection_.get(), XCB_RENDER_PICT_OP_OVER, image.picture(), XCB_NONE, target_.picture, 0, 0,
                         0, 0, static_cast<std::int16_t>(target.x), static_cast<std::int16_t>(target.y),
                         static_cast<std::uint16_t>(target.width), static_cast<std::uint16_t>(target.height));
}

void RegionComposer::fillBlack(const PixelRegion& region)
{
    if (region.isEmpty())
        return;
    clipTo(region);
    const auto rects = region.serverRects(-target_.origin.x, -target_.origin.y);
    xcb_render_fill_rectangles(connection_.get(), XCB_RENDER_PICT_OP_SRC, target_.picture, {0, 0, 0, 0xffff},
                               static_cast<std::uint32_t>(rects.size()), rects.data());
}

void RegionComposer::copy(xcb_drawable_t from, xcb_gcontext_t context, const PixelRegion& region)
{
    for (const xcb_rectangle_t& rect : region.serverRects())
        xcb_copy_area(connection_.get(), from, target_.pixmap, context, rect.x, rect.y,
                      static_cast<std::int16_t>(rect.x - target_.origin.x),
                      static_cast<std::int16_t>(rect.y - target_.origin.y), rect.width, rect.height);
}

void RegionComposer::clipTo(const PixelRegion& region)
{
    const auto rects = region.serverRects(-target_.origin.x, -target_.origin.y);
    xcb_render_set_picture_clip_rectangles(connection_.get(), target_.picture, 0, 0,
                                           static_cast<std::uint32_t>(rects.size()), rects.data());
}

} // namespace nimbrale::x11
