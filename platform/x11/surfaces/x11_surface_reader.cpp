#include "platform/x11/surfaces/x11_surface_reader.h"

#include "platform/x11/server/handles.h"

#include <cstring>
#include <utility>

namespace nimbrale::x11 {

namespace {

constexpr std::uint8_t argbDepth = 32;
constexpr std::uint32_t allPlanes = ~0U;

/// Past this many rectangles their bounds are cheaper than a request for each.
constexpr int mostRectangles = 32;

/// What is at least half as wide as the picture is read in whole rows, which arrive where they belong.
std::vector<PixelRect> rectsToRead(const PixelRegion& changed, int width)
{
    PixelRegion wanted = changed.count() > mostRectangles ? PixelRegion(changed.bounds()) : changed;
    PixelRegion rows;
    for (const PixelRect& rect : wanted.rects()) {
        if (rect.width >= width / 2)
            rows.add(0, rect.y, width, rect.height);
    }
    wanted |= rows;
    return wanted.rects();
}

} // namespace

Result<std::unique_ptr<X11SurfaceReader>> X11SurfaceReader::create(const std::string& displayName)
{
    auto connection = Connection::open(displayName);
    if (!connection)
        return tl::make_unexpected(connection.error());
    return std::unique_ptr<X11SurfaceReader>(new X11SurfaceReader(std::move(*connection)));
}

X11SurfaceReader::X11SurfaceReader(std::unique_ptr<Connection> connection) : connection_(std::move(connection)) {}

Result<SurfaceReader::Picture> X11SurfaceReader::read(const Surface& surface)
{
    const auto* const captured = dynamic_cast<const X11Surface*>(&surface);
    if (!captured)
        programmingError("a reader of the X11 backend got a surface of another one");
    return captured->memory() ? lookAt(*captured) : fetch(*captured);
}

SurfaceReader::Picture X11SurfaceReader::lookAt(const X11Surface& surface)
{
    const PixelRegion changed = changedSinceLastRead(surface);
    // What was fetched before grows old.
    shared_.reset();
    pixels_.emplace(surface.width(), surface.height(), surface.memory());
    isFetched_ = false;
    identifier_ = surface.identifier();
    return {&*pixels_, changed.rects()};
}

Result<SurfaceReader::Picture> X11SurfaceReader::fetch(const X11Surface& surface)
{
    prepare(surface.width(), surface.height());
    const PixelRegion changed = changedSinceLastRead(surface);
    identifier_ = 0;
    const xcb_drawable_t drawable = readable(surface, changed);
    const std::vector<PixelRect> rects = rectsToRead(changed, surface.width());
    const bool isRead = shared_ ? fetchShared(drawable, rects) : fetchInAnswers(drawable, rects);
    if (connection_->isLost())
        return fail(ErrorCode::permanent, "The connection to the X display is lost.");
    if (!isRead)
        return fail(ErrorCode::temporary, "The X server did not hand out a captured picture.");
    identifier_ = surface.identifier();
    return Picture{&*pixels_, changed.rects()};
}

void X11SurfaceReader::prepare(int width, int height)
{
    if (isFetched_ && pixels_->width() == width && pixels_->height() == height)
        return;
    isFetched_ = true;
    identifier_ = 0;
    pixels_.reset();
    shared_.reset();
    converted_.reset();
    convertedPicture_.reset();
    const std::size_t size =
        static_cast<std::size_t>(width) * PixelBuffer::bytesPerPixel * static_cast<std::size_t>(height);
    // As much again beside the picture, for rectangles that arrive packed.
    shared_ = SharedMemory::create(*connection_, 2 * size);
    if (shared_) {
        pixels_.emplace(width, height, shared_->memory());
        return;
    }
    pixels_.emplace(width, height);
}

PixelRegion X11SurfaceReader::changedSinceLastRead(const Surface& surface) const
{
    PixelRegion changed(surface.changedSince(identifier_));
    changed &= PixelRegion(0, 0, surface.width(), surface.height());
    return changed;
}

xcb_drawable_t X11SurfaceReader::readable(const X11Surface& surface, const PixelRegion& changed)
{
    if (connection_->screen().root_depth == 24)
        return surface.pixmap();
    if (!converted_) {
        converted_ = OwnedPixmap(*connection_, connection_->newId());
        xcb_create_pixmap(connection_->get(), argbDepth, converted_.get(), connection_->root(),
                          static_cast<std::uint16_t>(surface.width()), static_cast<std::uint16_t>(surface.height()));
        convertedPicture_ = OwnedPicture(*connection_, connection_->newId());
        xcb_render_create_picture(connection_->get(), convertedPicture_.get(), converted_.get(),
                                  connection_->argbFormat(), 0, nullptr);
    }
    const OwnedWindowPicture source(*connection_, connection_->newId());
    mayFail(connection_->get(), xcb_render_create_picture_checked(connection_->get(), source.get(), surface.pixmap(),
                                                                  connection_->rootFormat(), 0, nullptr));
    for (const PixelRect& rect : changed.rects()) {
        const auto x = static_cast<std::int16_t>(rect.x);
        const auto y = static_cast<std::int16_t>(rect.y);
        mayFail(connection_->get(), xcb_render_composite_checked(connection_->get(), XCB_RENDER_PICT_OP_SRC,
                                                                 source.get(), XCB_NONE, convertedPicture_.get(), x, y,
                                                                 0, 0, x, y, static_cast<std::uint16_t>(rect.width),
                                                                 static_cast<std::uint16_t>(rect.height)));
    }
    return converted_.get();
}

bool X11SurfaceReader::fetchShared(xcb_drawable_t drawable, const std::vector<PixelRect>& rects)
{
    const int width = pixels_->width();
    std::size_t beside = pixels_->stride() * static_cast<std::size_t>(pixels_->height());
    std::vector<Request> requests;
    for (const PixelRect& rect : rects) {
        Request request{rect, {}, 0};
        std::size_t offset = static_cast<std::size_t>(rect.y) * pixels_->stride();
        if (rect.width != width) {
            request.besideAt = offset = beside;
            beside += static_cast<std::size_t>(rect.area()) * PixelBuffer::bytesPerPixel;
        }
        request.sequence =
            xcb_shm_get_image(connection_->get(), drawable, static_cast<std::int16_t>(rect.x),
                              static_cast<std::int16_t>(rect.y), static_cast<std::uint16_t>(rect.width),
                              static_cast<std::uint16_t>(rect.height), allPlanes, XCB_IMAGE_FORMAT_Z_PIXMAP,
                              shared_->segment(), static_cast<std::uint32_t>(offset))
                .sequence;
        requests.push_back(request);
    }
    bool isComplete = true;
    for (const Request& request : requests) {
        xcb_generic_error_t* error = nullptr;
        const Reply<xcb_shm_get_image_reply_t> reply(
            xcb_shm_get_image_reply(connection_->get(), {request.sequence}, &error));
        const Reply<xcb_generic_error_t> ownedError(error);
        if (!reply) {
            isComplete = false;
            continue;
        }
        if (request.besideAt)
            copyRows(request.pixels, shared_->address() + *request.besideAt);
    }
    return isComplete;
}

bool X11SurfaceReader::fetchInAnswers(xcb_drawable_t drawable, const std::vector<PixelRect>& rects)
{
    std::vector<std::pair<PixelRect, xcb_get_image_cookie_t>> requests;
    requests.reserve(rects.size());
    for (const PixelRect& rect : rects)
        requests.emplace_back(rect, xcb_get_image(connection_->get(), XCB_IMAGE_FORMAT_Z_PIXMAP, drawable,
                                                  static_cast<std::int16_t>(rect.x), static_cast<std::int16_t>(rect.y),
                                                  static_cast<std::uint16_t>(rect.width),
                                                  static_cast<std::uint16_t>(rect.height), allPlanes));
    bool isComplete = true;
    for (const auto& [rect, cookie] : requests) {
        xcb_generic_error_t* error = nullptr;
        const Reply<xcb_get_image_reply_t> reply(xcb_get_image_reply(connection_->get(), cookie, &error));
        const Reply<xcb_generic_error_t> ownedError(error);
        const auto size = static_cast<std::size_t>(rect.area()) * PixelBuffer::bytesPerPixel;
        if (!reply || static_cast<std::size_t>(xcb_get_image_data_length(reply.get())) < size) {
            isComplete = false;
            continue;
        }
        copyRows(rect, reinterpret_cast<const std::byte*>(xcb_get_image_data(reply.get())));
    }
    return isComplete;
}

void X11SurfaceReader::copyRows(const PixelRect& rect, const std::byte* from)
{
    const std::size_t rowBytes = static_cast<std::size_t>(rect.width) * PixelBuffer::bytesPerPixel;
    const std::size_t left = static_cast<std::size_t>(rect.x) * PixelBuffer::bytesPerPixel;
    for (int row = 0; row < rect.height; ++row)
        std::memcpy(pixels_->row(rect.y + row) + left, from + static_cast<std::size_t>(row) * rowBytes, rowBytes);
}

} // namespace nimbrale::x11
