#include "platform/x11/layers/layer_drawing.h"

#include <QPainter>

#include <algorithm>
#include <cmath>

namespace nimbrale::x11 {

namespace {

constexpr std::uint8_t argbDepth = 32;

/// Rounded to the 256 steps of a channel first, so that the server and the painter get the same pixel.
std::uint16_t serverChannel(double value)
{
    return std::uint16_t(std::lround(std::clamp(value, 0.0, 1.0) * 255) * 257);
}

xcb_render_color_t serverColor(const Color& color, double opacity)
{
    const double alpha = color.alpha * opacity;
    return {serverChannel(color.red * alpha), serverChannel(color.green * alpha), serverChannel(color.blue * alpha),
            serverChannel(alpha)};
}

QColor painterColor(const Color& color)
{
    return QColor::fromRgbF(float(color.red), float(color.green), float(color.blue), float(color.alpha));
}

std::size_t pixelCount(const std::vector<PixelRect>& rects)
{
    std::size_t count = 0;
    for (const PixelRect& rect : rects)
        count += std::size_t(rect.width) * std::size_t(rect.height);
    return count;
}

void fillRects(Connection& connection, DrawTarget& target, const PixelRegion& region, std::uint8_t operation,
               const xcb_render_color_t& color)
{
    const auto rects = region.serverRects(-target.originX, -target.originY);
    if (!rects.empty())
        xcb_render_fill_rectangles(connection.get(), operation, target.picture(), color, std::uint32_t(rects.size()),
                                   rects.data());
}

void copyRects(Connection& connection, xcb_drawable_t from, int fromX, int fromY, DrawTarget& target,
               const PixelRegion& region)
{
    for (const PixelRect& rect : region.rects())
        xcb_copy_area(connection.get(), from, target.drawable(), target.context(), std::int16_t(rect.x - fromX),
                      std::int16_t(rect.y - fromY), std::int16_t(rect.x - target.originX),
                      std::int16_t(rect.y - target.originY), std::uint16_t(rect.width), std::uint16_t(rect.height));
}

} // namespace

LayerDrawing::LayerDrawing(Connection& connection)
    : connection_(connection), uploader_(connection), surfaces_(connection)
{}

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
    }
}

void LayerDrawing::drawBackground(DrawTarget& target, const LayerItem& item, const PixelRegion& region)
{
    const auto operation = item.isOpaque() ? XCB_RENDER_PICT_OP_SRC : XCB_RENDER_PICT_OP_OVER;
    fillRects(connection_, target, region, operation, serverColor(*item.layer->backgroundColor(), item.opacity));
}

void LayerDrawing::drawContents(DrawTarget& target, const LayerItem& item, const PixelRegion& region)
{
    if (item.frame.width <= 0 || item.frame.height <= 0)
        return;
    const X11Surface& surface = surfaces_.await(*item.layer->contents());
    const bool isSameSize = surface.width() == item.frame.width && surface.height() == item.frame.height;
    if (item.isOpaque() && isSameSize && target.depth() == connection_.screen().root_depth) {
        copyRects(connection_, surface.pixmap(), item.frame.x, item.frame.y, target, region);
        return;
    }
    const xcb_render_picture_t picture = surfaces_.stretched(surface, item.frame.width, item.frame.height);
    xcb_render_picture_t mask = XCB_NONE;
    if (item.opacity < 1) {
        mask = connection_.newId();
        xcb_render_create_solid_fill(connection_.get(), mask, {0, 0, 0, serverChannel(item.opacity)});
    }
    const auto operation = item.isOpaque() ? XCB_RENDER_PICT_OP_SRC : XCB_RENDER_PICT_OP_OVER;
    for (const PixelRect& rect : region.rects())
        xcb_render_composite(connection_.get(), operation, picture, mask, target.picture(),
                             std::int16_t(rect.x - item.frame.x), std::int16_t(rect.y - item.frame.y), 0, 0,
                             std::int16_t(rect.x - target.originX), std::int16_t(rect.y - target.originY),
                             std::uint16_t(rect.width), std::uint16_t(rect.height));
    if (mask != XCB_NONE)
        xcb_render_free_picture(connection_.get(), mask);
}

void LayerDrawing::drawPainting(DrawTarget& target, const LayerItem& item, const PixelRegion& region)
{
    const std::vector<PaintedPiece> pieces = paint({item}, region.rects());
    for (const PaintedPiece& piece : pieces)
        composite(target, piece, XCB_RENDER_PICT_OP_OVER);
    uploader_.end();
}

void LayerDrawing::copy(const DrawTarget& from, DrawTarget& to, const PixelRegion& region)
{
    copyRects(connection_, from.drawable(), from.originX, from.originY, to, region);
}

std::vector<PaintedPiece> LayerDrawing::paint(const std::vector<LayerItem>& items, const std::vector<PixelRect>& pieces)
{
    uploader_.begin(pixelCount(pieces));
    std::vector<PaintedPiece> painted;
    painted.reserve(pieces.size());
    for (const PixelRect& pixels : pieces) {
        QImage image = uploader_.image(pixels.width, pixels.height);
        bool isEmpty = true;
        for (const LayerItem& item : items) {
            if (item.kind == LayerItemKind::contents)
                continue;
            if (isEmpty && item.opacity >= 1) {
                paintItem(image, pixels, item);
            } else {
                // A painter may replace pixels instead of blending them, and knows nothing of its layer's opacity.
                QImage apart(image.size(), image.format());
                apart.fill(Qt::transparent);
                paintItem(apart, pixels, item);
                QPainter blender(&image);
                blender.setOpacity(item.opacity);
                blender.drawImage(0, 0, apart);
            }
            isEmpty = false;
        }
        painted.push_back({pixels, std::move(image)});
    }
    return painted;
}

void LayerDrawing::paintItem(QImage& image, const PixelRect& pixels, const LayerItem& item) const
{
    QPainter painter(&image);
    painter.translate(-pixels.x, -pixels.y);
    if (item.kind == LayerItemKind::background) {
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.fillRect(item.frame.x, item.frame.y, item.frame.width, item.frame.height,
                         painterColor(*item.layer->backgroundColor()));
        return;
    }
    painter.scale(scale_, scale_);
    painter.translate(item.origin.x, item.origin.y);
    const Rect dirty{pixels.x / scale_ - item.origin.x, pixels.y / scale_ - item.origin.y, pixels.width / scale_,
                     pixels.height / scale_};
    item.layer->painter()(painter, dirty);
}

void LayerDrawing::put(DrawTarget& target, const std::vector<PaintedPiece>& pieces)
{
    for (const PaintedPiece& piece : pieces) {
        if (target.depth() == argbDepth)
            uploader_.put(piece.image, target.drawable(), target.context(), piece.pixels.x - target.originX,
                          piece.pixels.y - target.originY);
        else
            composite(target, piece, XCB_RENDER_PICT_OP_SRC);
    }
    uploader_.end();
}

void LayerDrawing::composite(DrawTarget& target, const PaintedPiece& piece, std::uint8_t operation)
{
    const PixelRect& pixels = piece.pixels;
    DrawTarget& upload = grown(upload_, argbDepth, connection_.argbFormat(), pixels.width, pixels.height);
    uploader_.put(piece.image, upload.drawable(), upload.context(), 0, 0);
    xcb_render_composite(connection_.get(), operation, upload.picture(), XCB_NONE, target.picture(), 0, 0, 0, 0,
                         std::int16_t(pixels.x - target.originX), std::int16_t(pixels.y - target.originY),
                         std::uint16_t(pixels.width), std::uint16_t(pixels.height));
}

DrawTarget& LayerDrawing::scratchFor(const DrawTarget& target, const PixelRect& pixels)
{
    DrawTarget& scratch = grown(scratch_, target.depth(), target.format(), pixels.width, pixels.height);
    scratch.originX = pixels.x;
    scratch.originY = pixels.y;
    return scratch;
}

DrawTarget& LayerDrawing::grown(std::unique_ptr<DrawTarget>& pixmap, std::uint8_t depth, xcb_render_pictformat_t format,
                                int width, int height)
{
    if (pixmap && pixmap->width() >= width && pixmap->height() >= height)
        return *pixmap;
    const int newWidth = std::max(width, pixmap ? pixmap->width() : 0);
    const int newHeight = std::max(height, pixmap ? pixmap->height() : 0);
    pixmap = DrawTarget::pixmap(connection_, depth, format, newWidth, newHeight);
    return *pixmap;
}

void LayerDrawing::forgetSurfacesExceptOf(const std::vector<LayerItem>& items)
{
    std::set<std::uint64_t> shown;
    for (const LayerItem& item : items) {
        if (item.kind == LayerItemKind::contents)
            shown.insert(item.layer->contents()->storage());
    }
    surfaces_.keepOnly(shown);
}

} // namespace nimbrale::x11
