#include "platform/x11/surfaces/surface_pictures.h"

#include "platform/result.h"
#include "platform/x11/surfaces/x11_surface.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace nimbrale::x11 {

namespace {

constexpr std::uint8_t argbDepth = 32;

xcb_render_fixed_t fixed(double value)
{
    return static_cast<xcb_render_fixed_t>(std::lround(value * 65536));
}

[[nodiscard]] bool isWhole(double value)
{
    return value == std::floor(value);
}

void setTransform(Connection& connection, xcb_render_picture_t picture, const SurfaceMapping& mapping,
                  const char* filter)
{
    const xcb_render_transform_t transform{fixed(mapping.scaleX),
                                           0,
                                           fixed(mapping.offsetX),
                                           0,
                                           fixed(mapping.scaleY),
                                           fixed(mapping.offsetY),
                                           0,
                                           0,
                                           fixed(1)};
    xcb_render_set_picture_transform(connection.get(), picture, transform);
    xcb_render_set_picture_filter(connection.get(), picture, static_cast<std::uint16_t>(std::strlen(filter)), filter, 0,
                                  nullptr);
}

/// Whether pixels of the root have the bits that the process's own pictures have.
[[nodiscard]] bool isRootBgrx(const Connection& connection)
{
    return connection.screen().root_depth == 24;
}

QImage imageOf(const BufferSurface& surface)
{
    const PixelBuffer& pixels = surface.pixels();
    return {reinterpret_cast<const uchar*>(pixels.row(0)), pixels.width(), pixels.height(),
            static_cast<qsizetype>(pixels.stride()),
            surface.alpha() == SurfaceAlpha::opaque ? QImage::Format_RGB32 : QImage::Format_ARGB32_Premultiplied};
}

} // namespace

bool SurfaceMapping::isExact() const
{
    return std::abs(scaleX) == 1 && std::abs(scaleY) == 1 && isWhole(offsetX) && isWhole(offsetY);
}

int SurfaceMapping::halvings() const
{
    const double reduction = std::min(std::abs(scaleX), std::abs(scaleY));
    return reduction < 2 ? 0 : static_cast<int>(std::floor(std::log2(reduction)));
}

SurfaceMapping SurfaceMapping::onto(const Rect& area, int width, int height, bool isMirrored)
{
    SurfaceMapping mapping;
    mapping.scaleX = width / area.width;
    mapping.scaleY = height / area.height;
    mapping.offsetX = -area.x * mapping.scaleX;
    mapping.offsetY = -area.y * mapping.scaleY;
    if (isMirrored) {
        mapping.scaleX = -mapping.scaleX;
        mapping.offsetX = width - mapping.offsetX;
    }
    return mapping;
}

SurfacePictures::Pixmap SurfacePictures::pixmap(const Surface& surface)
{
    return entryOf(surface).pixmap;
}

xcb_render_picture_t SurfacePictures::picture(const Surface& surface, const SurfaceMapping& mapping)
{
    Entry& entry = entryOf(surface);
    const int halvings = mapping.halvings();
    if (halvings == 0) {
        if (!entry.picture)
            entry.picture = makePicture(entry.pixmap.id, entry.format);
        setTransform(connection_, entry.picture.get(), mapping, mapping.isExact() ? "nearest" : "bilinear");
        return entry.picture.get();
    }
    halve(surface, entry, halvings);
    const double factor = std::exp2(-halvings);
    const SurfaceMapping smaller{mapping.scaleX * factor, mapping.scaleY * factor, mapping.offsetX * factor,
                                 mapping.offsetY * factor};
    const xcb_render_picture_t halved = entry.halved[static_cast<std::size_t>(halvings) - 1].picture.get();
    setTransform(connection_, halved, smaller, smaller.isExact() ? "nearest" : "bilinear");
    return halved;
}

SurfacePictures::Entry& SurfacePictures::entryOf(const Surface& surface)
{
    if (const auto* const buffer = dynamic_cast<const BufferSurface*>(&surface))
        return uploadedEntry(*buffer);
    const auto* const captured = dynamic_cast<const X11Surface*>(&surface);
    if (!captured)
        programmingError("a layer of the X11 backend got a surface of another one");
    Entry& entry = entries_[surface.storage()];
    entry.pixmap = {captured->pixmap(), connection_.screen().root_depth};
    entry.width = surface.width();
    entry.height = surface.height();
    entry.format = connection_.rootFormat();
    return entry;
}

SurfacePictures::Entry& SurfacePictures::uploadedEntry(const BufferSurface& surface)
{
    const auto known = entries_.find(surface.storage());
    Entry& entry = known != entries_.end()
                       ? known->second
                       : entries_.emplace(surface.storage(), makeUploadEntry(surface)).first->second;
    if (entry.uploaded != surface.identifier())
        upload(surface, entry);
    return entry;
}

SurfacePictures::Entry SurfacePictures::makeUploadEntry(const BufferSurface& surface)
{
    const bool isLikeRoot = surface.alpha() == SurfaceAlpha::opaque && isRootBgrx(connection_);
    const std::uint8_t depth = isLikeRoot ? connection_.screen().root_depth : argbDepth;
    if (spare_ && spare_->width == surface.width() && spare_->height == surface.height() &&
        spare_->pixmap.depth == depth) {
        Entry entry = std::move(*spare_);
        spare_.reset();
        return entry;
    }
    Entry entry;
    entry.ownPixmap = OwnedPixmap(connection_, connection_.newId());
    entry.width = surface.width();
    entry.height = surface.height();
    xcb_create_pixmap(connection_.get(), depth, entry.ownPixmap.get(), connection_.root(),
                      static_cast<std::uint16_t>(entry.width), static_cast<std::uint16_t>(entry.height));
    entry.pixmap = {entry.ownPixmap.get(), depth};
    entry.format = isLikeRoot ? connection_.rootFormat() : connection_.argbFormat();
    return entry;
}

void SurfacePictures::upload(const BufferSurface& surface, Entry& entry)
{
    const QImage source = imageOf(surface);
    uploader_.begin(static_cast<std::size_t>(source.width()) * static_cast<std::size_t>(source.height()));
    QImage shared = uploader_.unclearedImage(source.width(), source.height(), source.format());
    for (int row = 0; row < source.height(); ++row)
        std::memcpy(shared.scanLine(row), source.constScanLine(row), surface.pixels().stride());
    if (source.format() == QImage::Format_RGB32 && entry.pixmap.depth == argbDepth) {
        for (int row = 0; row < shared.height(); ++row) {
            auto* const pixels = reinterpret_cast<QRgb*>(shared.scanLine(row));
            std::transform(pixels, pixels + shared.width(), pixels, [](QRgb pixel) { return pixel | 0xff000000U; });
        }
    }
    OwnedGraphicsContext context(connection_, connection_.newId());
    xcb_create_gc(connection_.get(), context.get(), entry.pixmap.id, 0, nullptr);
    uploader_.put(shared, entry.pixmap.id, entry.pixmap.depth, context.get(), 0, 0);
    uploader_.end();
    entry.uploaded = surface.identifier();
}

void SurfacePictures::halve(const Surface& surface, Entry& entry, int times)
{
    if (entry.halvedOf != surface.identifier())
        entry.halved.clear();
    entry.halvedOf = surface.identifier();
    while (entry.halved.size() < static_cast<std::size_t>(times)) {
        if (!entry.picture)
            entry.picture = makePicture(entry.pixmap.id, entry.format);
        const bool isFirst = entry.halved.empty();
        const xcb_render_picture_t from = isFirst ? entry.picture.get() : entry.halved.back().picture.get();
        Halved to;
        to.width = ((isFirst ? entry.width : entry.halved.back().width) + 1) / 2;
        to.height = ((isFirst ? entry.height : entry.halved.back().height) + 1) / 2;
        to.pixmap = OwnedPixmap(connection_, connection_.newId());
        xcb_create_pixmap(connection_.get(), entry.pixmap.depth, to.pixmap.get(), connection_.root(),
                          static_cast<std::uint16_t>(to.width), static_cast<std::uint16_t>(to.height));
        to.picture = makePicture(to.pixmap.get(), entry.format);
        // Right between four pixels, the filter takes the mean of them.
        setTransform(connection_, from, {2, 2, 0, 0}, "bilinear");
        xcb_render_composite(connection_.get(), XCB_RENDER_PICT_OP_SRC, from, XCB_NONE, to.picture.get(), 0, 0, 0, 0, 0,
                             0, static_cast<std::uint16_t>(to.width), static_cast<std::uint16_t>(to.height));
        entry.halved.push_back(std::move(to));
    }
}

OwnedPicture SurfacePictures::makePicture(xcb_pixmap_t pixmap, xcb_render_pictformat_t format)
{
    OwnedPicture picture(connection_, connection_.newId());
    // Repeating the edge keeps the filter from mixing in the nothing around the picture.
    const std::uint32_t repeat = XCB_RENDER_REPEAT_PAD;
    xcb_render_create_picture(connection_.get(), picture.get(), pixmap, format, XCB_RENDER_CP_REPEAT, &repeat);
    return picture;
}

void SurfacePictures::setShown(const void* user, std::set<std::uint64_t> storages)
{
    if (storages.empty())
        shown_.erase(user);
    else
        shown_[user] = std::move(storages);
    const auto isShown = [this](std::uint64_t storage) {
        return std::any_of(shown_.begin(), shown_.end(),
                           [storage](const auto& other) { return other.second.contains(storage); });
    };
    for (auto entry = entries_.begin(); entry != entries_.end();) {
        if (isShown(entry->first)) {
            ++entry;
            continue;
        }
        if (entry->second.ownPixmap)
            spare_ = std::move(entry->second);
        entry = entries_.erase(entry);
    }
}

} // namespace nimbrale::x11
