#include "platform/x11/layers/corner_masks.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>

namespace nimbrale::x11 {

namespace {

constexpr std::uint8_t maskDepth = 8;

} // namespace

void paintCornerMask(QImage& image, double radius, double opacity)
{
    image.fill(0);
    QPainterPath shape;
    shape.addRoundedRect(QRectF(image.rect()), radius, radius);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setOpacity(opacity);
    painter.fillPath(shape, Qt::white);
}

xcb_render_picture_t CornerMasks::mask(int width, int height, double radius, double opacity)
{
    const Key key{width, height, radius, opacity};
    const auto known = std::find_if(masks_.begin(), masks_.end(), [&](const Mask& mask) { return mask.key == key; });
    if (known != masks_.end()) {
        masks_.splice(masks_.begin(), masks_, known);
        return masks_.front().picture.get();
    }
    masks_.push_front(make(key));
    if (masks_.size() > mostKept)
        masks_.pop_back();
    return masks_.front().picture.get();
}

CornerMasks::Mask CornerMasks::make(const Key& key)
{
    uploader_.begin(static_cast<std::size_t>(key.width) * static_cast<std::size_t>(key.height));
    QImage image = uploader_.unclearedImage(key.width, key.height, QImage::Format_Alpha8);
    paintCornerMask(image, key.radius, key.opacity);
    Mask mask{key, OwnedPixmap(connection_, connection_.newId()), OwnedPicture(connection_, connection_.newId())};
    xcb_create_pixmap(connection_.get(), maskDepth, mask.pixmap.get(), connection_.root(),
                      static_cast<std::uint16_t>(key.width), static_cast<std::uint16_t>(key.height));
    const OwnedGraphicsContext context(connection_, connection_.newId());
    xcb_create_gc(connection_.get(), context.get(), mask.pixmap.get(), 0, nullptr);
    uploader_.put(image, mask.pixmap.get(), maskDepth, context.get(), 0, 0);
    uploader_.end();
    xcb_render_create_picture(connection_.get(), mask.picture.get(), mask.pixmap.get(), connection_.alphaFormat(), 0,
                              nullptr);
    return mask;
}

} // namespace nimbrale::x11
