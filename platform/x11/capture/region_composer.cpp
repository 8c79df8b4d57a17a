#include "platform/x11/capture/region_composer.h"

#include "platform/x11/server/handles.h"

namespace nimbrale::x11 {

RegionComposer::RegionComposer(Connection& connection, std::function<void(xcb_pixmap_t)> releasePixmap)
    : connection_(connection), releasePixmap_(std::move(releasePixmap))
{
    context_ = connection_.newId();
    const std::uint32_t withoutExposures[] = {0};
    xcb_create_gc(connection_.get(), context_, connection_.root(), XCB_GC_GRAPHICS_EXPOSURES, withoutExposures);
    inferiorsContext_ = connection_.newId();
    const std::uint32_t withInferiors[] = {XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS, 0};
    xcb_create_gc(connection_.get(), inferiorsContext_, connection_.root(),
                  XCB_GC_SUBWINDOW_MODE | XCB_GC_GRAPHICS_EXPOSURES, withInferiors);
}

RegionComposer::~RegionComposer()
{
    release(canvas_);
    release(spare_);
    xcb_free_gc(connection_.get(), context_);
    xcb_free_gc(connection_.get(), inferiorsContext_);
}

void RegionComposer::setSource(const PixelRect& source)
{
    if (canvas_.pixmap && source == source_)
        return;
    source_ = source;
    const auto fits = [&source](const Canvas& canvas) {
        return canvas.pixmap && canvas.pixmap->width() == source.width && canvas.pixmap->height() == source.height;
    };
    std::swap(canvas_, spare_);
    if (!fits(spare_))
        release(spare_);
    // Only this object hands the pixmap out, so that one which nobody else holds stays free.
    if (fits(canvas_) && canvas_.pixmap.use_count() == 1)
        return;
    release(canvas_);
    canvas_ = makeCanvas();
}

RegionComposer::Canvas RegionComposer::makeCanvas() const
{
    xcb_connection_t* const raw = connection_.get();
    const xcb_pixmap_t pixmap = connection_.newId();
    xcb_create_pixmap(raw, connection_.screen().root_depth, pixmap, connection_.root(), std::uint16_t(source_.width),
                      std::uint16_t(source_.height));
    const xcb_render_picture_t picture = connection_.newId();
    xcb_render_create_picture(raw, picture, pixmap, connection_.rootFormat(), 0, nullptr);
    return {std::make_shared<SharedPixmap>(pixmap, source_.width, source_.height, releasePixmap_), picture};
}

void RegionComposer::release(Canvas& canvas)
{
    if (canvas.picture != XCB_NONE)
        xcb_render_free_picture(connection_.get(), canvas.picture);
    canvas = {};
}

void RegionComposer::compose(const PixelRegion& dirty, const DesktopParts& parts, const WindowTest& isIncluded,
                             std::optional<PointerPlace> pointer)
{
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

void RegionComposer::copyRoot(const PixelRegion& dirty, const PointerImage& image, std::optional<PointerPlace> pointer)
{
    for (const xcb_rectangle_t& rect : dirty.serverRects())
        xcb_copy_area(connection_.get(), connection_.root(), canvas_.pixmap->pixmap(), inferiorsContext_, rect.x,
                      rect.y, std::int16_t(rect.x - source_.x), std::int16_t(rect.y - source_.y), rect.width,
                      rect.height);
    if (pointer)
        paintPointer(dirty, image, *pointer);
}

void RegionComposer::paint(const CapturedWindow& window, const PixelRegion& clip, bool isOver)
{
    xcb_connection_t* const raw = connection_.get();
    if (!isOver && window.depth == connection_.screen().root_depth) {
        for (const xcb_rectangle_t& rect : clip.serverRects())
            mayFail(raw, xcb_copy_area_checked(raw, window.pixmap, canvas_.pixmap->pixmap(), context_,
                                               std::int16_t(rect.x - window.x), std::int16_t(rect.y - window.y),
                                               std::int16_t(rect.x - source_.x), std::int16_t(rect.y - source_.y),
                                               rect.width, rect.height));
        return;
    }
    clipTo(clip);
    xcb_render_picture_t mask = XCB_NONE;
    if (isOver && window.opacity != 0xffffffff) {
        mask = connection_.newId();
        xcb_render_create_solid_fill(raw, mask, {0, 0, 0, std::uint16_t(window.opacity >> 16)});
    }
    const PixelRect bounds = clip.bounds();
    mayFail(raw, xcb_render_composite_checked(raw, isOver ? XCB_RENDER_PICT_OP_OVER : XCB_RENDER_PICT_OP_SRC,
                                              window.picture, mask, canvas_.picture, std::int16_t(bounds.x - window.x),
                                              std::int16_t(bounds.y - window.y), 0, 0,
                                              std::int16_t(bounds.x - source_.x), std::int16_t(bounds.y - source_.y),
                                              std::uint16_t(bounds.width), std::uint16_t(bounds.height)));
    if (mask != XCB_NONE)
        xcb_render_free_picture(raw, mask);
}

void RegionComposer::paintBackground(const PixelRegion& clip, const RootBackground& background)
{
    if (background.standIn() != XCB_NONE) {
        paintRoot(clip, background.standIn());
        return;
    }
    xcb_connection_t* const raw = connection_.get();
    clipTo(clip);
    if (background.wallpaper() == XCB_NONE) {
        const auto rects = clip.serverRects(-source_.x, -source_.y);
        xcb_render_fill_rectangles(raw, XCB_RENDER_PICT_OP_SRC, canvas_.picture, {0, 0, 0, 0xffff},
                                   std::uint32_t(rects.size()), rects.data());
        return;
    }
    const PixelRect bounds = clip.bounds();
    mayFail(raw, xcb_render_composite_checked(raw, XCB_RENDER_PICT_OP_SRC, background.wallpaper(), XCB_NONE,
                                              canvas_.picture, std::int16_t(bounds.x), std::int16_t(bounds.y), 0, 0,
                                              std::int16_t(bounds.x - source_.x), std::int16_t(bounds.y - source_.y),
                                              std::uint16_t(bounds.width), std::uint16_t(bounds.height)));
}

void RegionComposer::paintRoot(const PixelRegion& clip, xcb_window_t standIn)
{
    xcb_connection_t* const raw = connection_.get();
    const auto copy = [&](xcb_window_t from, const xcb_rectangle_t& rect) {
        xcb_copy_area(raw, from, canvas_.pixmap->pixmap(), context_, rect.x, rect.y,
                      static_cast<std::int16_t>(rect.x - source_.x), static_cast<std::int16_t>(rect.y - source_.y),
                      rect.width, rect.height);
    };
    for (const xcb_rectangle_t& rect : clip.serverRects()) {
        xcb_clear_area(raw, 0, standIn, rect.x, rect.y, rect.width, rect.height);
        copy(standIn, rect);
        // Programs draw on the root itself, too. The server copies nothing where a window covers the root, so that no
        // own window can get in by this, wherever it has gone meanwhile.
        copy(connection_.root(), rect);
    }
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
    xcb_render_composite(connection_.get(), XCB_RENDER_PICT_OP_OVER, image.picture(), XCB_NONE, canvas_.picture, 0, 0,
                         0, 0, std::int16_t(coverage.x - source_.x), std::int16_t(coverage.y - source_.y),
                         std::uint16_t(coverage.width), std::uint16_t(coverage.height));
}

void RegionComposer::clipTo(const PixelRegion& region)
{
    const auto rects = region.serverRects(-source_.x, -source_.y);
    xcb_render_set_picture_clip_rectangles(connection_.get(), canvas_.picture, 0, 0, std::uint32_t(rects.size()),
                                           rects.data());
}

} // namespace nimbrale::x11
