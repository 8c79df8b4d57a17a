#include "platform/x11/capture/frame_pixmaps.h"

#include "platform/pixel_buffer.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/surfaces/shared_memory.h"

#include <algorithm>
#include <utility>

namespace nimbrale::x11 {

FramePixmaps::FramePixmaps(Connection& connection, FrameMemory memory, std::function<void(xcb_pixmap_t)> release)
    : connection_(connection), memory_(connection.screen().root_depth == 24 ? memory : FrameMemory::server),
      release_(std::move(release)), context_(connection, connection.newId())
{
    const std::uint32_t withoutExposures[] = {0};
    xcb_create_gc(connection_.get(), context_.get(), connection_.root(), XCB_GC_GRAPHICS_EXPOSURES, withoutExposures);
}

void FramePixmaps::setSize(int width, int height)
{
    if (width == width_ && height == height_)
        return;
    width_ = width;
    height_ = height;
    newest_ = nullptr;
    pixmaps_.clear();
}

const FramePixmaps::Pixmap& FramePixmaps::begin(const PixelRegion& changed)
{
    Pixmap& next = findUsable();
    for (const auto& pixmap : pixmaps_) {
        pixmap->stale |= changed;
        pixmap->wasFree = isFree(*pixmap);
    }
    bringUpToDate(next, changed);
    next.stale.clear();
    next.scene = scene_;
    next.wasFree = false;
    newest_ = &next;
    // One pixmap beside the newest is what taking turns needs.
    keepSpares(1);
    return next;
}

FramePixmaps::Pixmap& FramePixmaps::findUsable()
{
    if (newest_ && isUsable(*newest_))
        return *newest_;
    const auto found =
        std::find_if(pixmaps_.begin(), pixmaps_.end(), [this](const auto& pixmap) { return isUsable(*pixmap); });
    if (found != pixmaps_.end())
        return **found;
    pixmaps_.push_back(make());
    return *pixmaps_.back();
}

std::unique_ptr<FramePixmaps::Pixmap> FramePixmaps::make()
{
    std::shared_ptr<SharedPixmap> storage = makeStorage();
    OwnedPicture picture(connection_, connection_.newId());
    xcb_render_create_picture(connection_.get(), picture.get(), storage->pixmap(), connection_.rootFormat(), 0,
                              nullptr);
    return std::make_unique<Pixmap>(Pixmap{std::move(storage), std::move(picture), PixelRegion(0, 0, width_, height_)});
}

std::shared_ptr<SharedPixmap> FramePixmaps::makeStorage()
{
    if (memory_ == FrameMemory::shared) {
        if (auto storage = makeSharedStorage())
            return storage;
        memory_ = FrameMemory::server;
    }
    const xcb_pixmap_t pixmap = connection_.newId();
    xcb_create_pixmap(connection_.get(), connection_.screen().root_depth, pixmap, connection_.root(),
                      static_cast<std::uint16_t>(width_), static_cast<std::uint16_t>(height_));
    return std::make_shared<SharedPixmap>(pixmap, width_, height_, release_);
}

std::shared_ptr<SharedPixmap> FramePixmaps::makeSharedStorage() const
{
    // The server keeps what a pixmap lies in, so that the segment may go at the end of this.
    const auto shared = SharedMemory::create(
        connection_, static_cast<std::size_t>(width_) * PixelBuffer::bytesPerPixel * static_cast<std::size_t>(height_));
    if (!shared)
        return nullptr;
    const xcb_pixmap_t pixmap = connection_.newId();
    // Servers that draw with a graphics card refuse.
    const Reply<xcb_generic_error_t> error(xcb_request_check(
        connection_.get(),
        xcb_shm_create_pixmap_checked(connection_.get(), pixmap, connection_.root(), static_cast<std::uint16_t>(width_),
                                      static_cast<std::uint16_t>(height_), connection_.screen().root_depth,
                                      shared->segment(), 0)));
    if (error)
        return nullptr;
    return std::make_shared<SharedPixmap>(pixmap, width_, height_, release_, shared->memory());
}

void FramePixmaps::bringUpToDate(Pixmap& pixmap, const PixelRegion& changed) const
{
    if (&pixmap == newest_)
        return;
    PixelRegion missing(pixmap.stale);
    missing -= changed;
    xcb_connection_t* const raw = connection_.get();
    const auto rects = missing.serverRects();
    if (!newest_) {
        // The server hands out memory as some other program left it.
        if (!rects.empty())
            xcb_render_fill_rectangles(raw, XCB_RENDER_PICT_OP_SRC, pixmap.picture.get(), {0, 0, 0, 0xffff},
                                       static_cast<std::uint32_t>(rects.size()), rects.data());
        return;
    }
    for (const xcb_rectangle_t& rect : rects)
        xcb_copy_area(raw, newest_->storage->pixmap(), pixmap.storage->pixmap(), context_.get(), rect.x, rect.y, rect.x,
                      rect.y, rect.width, rect.height);
}

bool FramePixmaps::hasSpares() const
{
    return std::ranges::any_of(pixmaps_, [this](const auto& pixmap) { return isSpare(*pixmap); });
}

void FramePixmaps::keepSpares(int most)
{
    int spares = 0;
    std::erase_if(pixmaps_, [&](const auto& pixmap) { return isSpare(*pixmap) && ++spares > most; });
}

} // namespace nimbrale::x11
