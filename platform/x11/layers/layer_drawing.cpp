#include "platform/x11/layers/layer_drawing.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace nimbrale::x11 {

namespace {

constexpr std::uint8_t argbDepth = 32;
constexpr Color transparent{0, 0, 0, 0};

/// Rounded to the 256 steps of a channel first, so that the server and the painter get the same pixel.
std::uint16_t serverChannel(double value)
{
    return static_cast<std::uint16_t>(std::lround(std::clamp(value, 0.0, 1.0) * 255) * 257);
}

xcb_render_color_t serverColor(const Color& color, double opacity)
{
    const double alpha = color.alpha * opacity;
    return {serverChannel(color.red * alpha), serverChannel(color.green * alpha), serverChannel(color.blue * alpha),
            serverChannel(alpha)};
}

std::size_t pixelCount(const std::vector<PixelRect>& rects)
{
    std::size_t count = 0;
    for (const PixelRect& rect : rects)
        count += static_cast<std::size_t>(rect.area());
    return count;
}

void fillRects(Connection& connection, DrawTarget& target, const PixelRegion& region, std::uint8_t operation,
               const xcb_render_color_t& color)
{
    const auto rects = region.serverRects(-target.originX, -target.originY);
    if (!rects.empty())
        xcb_render_fill_rectangles(connection.get(), operation, target.picture(), color,
                                   static_cast<std::uint32_t>(rects.size()), rects.data());
}

void copyRects(Connection& connection, xcb_drawable_t from, int fromX, int fromY, DrawTarget& target,
               const PixelRegion& region)
{
    for (const PixelRect& rect : region.rects())
        xcb_copy_area(connection.get(), from, target.drawable(), target.context(),
                      static_cast<std::int16_t>(rect.x - fromX), static_cast<std::int16_t>(rect.y - fromY),
                      static_cast<std::int16_t>(rect.x - target.originX),
                      static_cast<std::int16_t>(rect.y - target.originY), static_cast<std::uint16_t>(rect.width),
                      static_cast<std::uint16_t>(rect.height));
}

void collectStorages(const std::vector<LayerItem>& items, std::set<std::uint64_t>& storages)
{
    for (const LayerItem& item : items) {
        if (item.kind == LayerItemKind::contents)
            storages.insert(item.layer->contents()->storage());
        collectStorages(item.members, storages);
    }
}

} // namespace

LayerDrawing::LayerDrawing(DrawingResources& resources) : resources_(resources), connection_(resources.connection()) {}

LayerDrawing::~LayerDrawing()
{
    resources_.surfaces().setShown(this, {});
}

void LayerDrawing::fill(DrawTarget& target, const PixelRegion& region, const Color& color)
{
    fillRects(connection_, target, region, XCB_RENDER_PICT_OP_SRC, serverColor(color, 1));
}

void LayerDrawing::draw(DrawTarget& target, const LayerItem& item, const PixelRegion& region)
{
    switch (item.kind) {
    case LayerItemKind::background:
        drawBackground(target, item, region);
        return;
    case LayerItemKind::contents:
        drawContents(target, item, region);
        return;
    case LayerItemKind::painting:
        drawPainting(target, item, region);
        return;
    case LayerItemKind::group:
        drawGroup(target, item, region);
        return;
    }
}

void LayerDrawing::drawBackground(DrawTarget& target, const LayerItem& item, const PixelRegion& region)
{
    if (item.cornerRadius > 0) {
        drawGroup(target, item, region);
        return;
    }
    const auto operation = item.isOpaque() ? XCB_RENDER_PICT_OP_SRC : XCB_RENDER_PICT_OP_OVER;
    fillRects(connection_, target, region, operation, serverColor(*item.layer->backgroundColor(), item.opacity));
}

void LayerDrawing::drawContents(DrawTarget& target, const LayerItem& item, const PixelRegion& region)
{
    if (item.contentsRect.isEmpty())
        return;
    const Surface& surface = *item.layer->contents();
    if (item.isOpaque() && item.isPixelForPixel()) {
        const SurfacePictures::Pixmap pixmap = resources_.surfaces().pixmap(surface);
        if (pixmap.depth == target.depth()) {
            copyRects(connection_, pixmap.id, static_cast<int>(item.contentsRect.x),
                      static_cast<int>(item.contentsRect.y), target, region);
            return;
        }
    }
    const SurfaceMapping mapping =
        SurfaceMapping::onto(item.contentsRect, surface.width(), surface.height(), item.layer->isMirrored());
    composite(target, item, region, resources_.surfaces().picture(surface, mapping), 0, 0);
}

void LayerDrawing::drawPainting(DrawTarget& target, const LayerItem& item, const PixelRegion& region)
{
    if (item.cornerRadius > 0) {
        drawGroup(target, item, region);
        return;
    }
    for (const PaintedPiece& piece : paint({item}, region.rects())) {
        DrawTarget& upload = uploaded(piece);
        xcb_render_composite(connection_.get(), XCB_RENDER_PICT_OP_OVER, upload.picture(), XCB_NONE, target.picture(),
                             0, 0, 0, 0, static_cast<std::int16_t>(piece.pixels.x - target.originX),
                             static_cast<std::int16_t>(piece.pixels.y - target.originY),
                             static_cast<std::uint16_t>(piece.pixels.width),
                             static_cast<std::uint16_t>(piece.pixels.height));
    }
    resources_.uploader().end();
}

void LayerDrawing::drawGroup(DrawTarget& target, const LayerItem& item, const PixelRegion& region)
{
    DrawTarget& scratch = resources_.scratch(DrawingResources::Scratch::group, argbDepth, connection_.argbFormat(),
                                             region.bounds(), groupLevel_);
    ++groupLevel_;
    fill(scratch, region, transparent);
    if (item.kind == LayerItemKind::group) {
        for (const LayerItem& member : item.members) {
            PixelRegion part = member.region();
            part &= region;
            if (!part.isEmpty())
                draw(scratch, member, part);
        }
    } else {
        LayerItem plain = item;
        plain.opacity = 1;
        plain.cornerRadius = 0;
        draw(scratch, plain, region);
    }
    --groupLevel_;
    composite(target, item, region, scratch.picture(), scratch.originX, scratch.originY);
}

void LayerDrawing::composite(DrawTarget& target, const LayerItem& item, const PixelRegion& region,
                             xcb_render_picture_t picture, int fromX, int fromY)
{
    OwnedPicture opacity;
    xcb_render_picture_t mask = XCB_NONE;
    if (item.cornerRadius > 0) {
        mask = resources_.masks().mask(item.frame.width, item.frame.height, item.cornerRadius, item.opacity);
    } else if (item.opacity < 1) {
        opacity = OwnedPicture(connection_, connection_.newId());
        xcb_render_create_solid_fill(connection_.get(), opacity.get(), {0, 0, 0, serverChannel(item.opacity)});
        mask = opacity.get();
    }
    const auto operation = item.isOpaque() ? XCB_RENDER_PICT_OP_SRC : XCB_RENDER_PICT_OP_OVER;
    for (const PixelRect& rect : region.rects())
        xcb_render_composite(
            connection_.get(), operation, picture, mask, target.picture(), static_cast<std::int16_t>(rect.x - fromX),
            static_cast<std::int16_t>(rect.y - fromY), static_cast<std::int16_t>(rect.x - item.frame.x),
            static_cast<std::int16_t>(rect.y - item.frame.y), static_cast<std::int16_t>(rect.x - target.originX),
            static_cast<std::int16_t>(rect.y - target.originY), static_cast<std::uint16_t>(rect.width),
            static_cast<std::uint16_t>(rect.height));
}

void LayerDrawing::copy(const DrawTarget& from, DrawTarget& to, const PixelRegion& region)
{
    copyRects(connection_, from.drawable(), from.originX, from.originY, to, region);
}

std::vector<PaintedPiece> LayerDrawing::paint(const std::vector<LayerItem>& items, const std::vector<PixelRect>& pieces)
{
    ImageUploader& uploader = resources_.uploader();
    uploader.begin(pixelCount(pieces));
    std::vector<PaintedPiece> painted;
    painted.reserve(pieces.size());
    for (const PixelRect& pixels : pieces) {
        QImage image = uploader.image(pixels.width, pixels.height);
        painter_.paint(image, pixels.x, pixels.y, items, scale_);
        painted.push_back({pixels, std::move(image)});
    }
    return painted;
}

void LayerDrawing::put(DrawTarget& target, const std::vector<PaintedPiece>& pieces)
{
    for (const PaintedPiece& piece : pieces) {
        const int x = piece.pixels.x - target.originX;
        const int y = piece.pixels.y - target.originY;
        if (target.depth() == argbDepth) {
            resources_.uploader().put(piece.image, target.drawable(), argbDepth, target.context(), x, y);
            continue;
        }
        DrawTarget& upload = uploaded(piece);
        xcb_render_composite(connection_.get(), XCB_RENDER_PICT_OP_SRC, upload.picture(), XCB_NONE, target.picture(), 0,
                             0, 0, 0, static_cast<std::int16_t>(x), static_cast<std::int16_t>(y),
                             static_cast<std::uint16_t>(piece.pixels.width),
                             static_cast<std::uint16_t>(piece.pixels.height));
    }
    resources_.uploader().end();
}

DrawTarget& LayerDrawing::uploaded(const PaintedPiece& piece)
{
    DrawTarget& upload =
        resources_.scratch(DrawingResources::Scratch::upload, argbDepth, connection_.argbFormat(), piece.pixels);
    resources_.uploader().put(piece.image, upload.drawable(), argbDepth, upload.context(), 0, 0);
    return upload;
}

DrawTarget& LayerDrawing::scratchFor(const DrawTarget& target, const PixelRect& pixels)
{
    return resources_.scratch(DrawingResources::Scratch::window, target.depth(), target.format(), pixels);
}

void LayerDrawing::forgetSurfacesExceptOf(const std::vector<LayerItem>& items)
{
    resources_.keep();
    std::set<std::uint64_t> shown;
    collectStorages(items, shown);
    resources_.surfaces().setShown(this, std::move(shown));
}

} // namespace nimbrale::x11
