#include "platform/x11/capture/seen_picture.h"

#include <utility>

namespace nimbrale::x11 {

SeenPicture::SeenPicture(Connection& connection) : connection_(connection), context_(connection, connection.newId())
{
    const std::uint32_t withoutExposures = 0;
    xcb_create_gc(connection_.get(), context_.get(), connection_.root(), XCB_GC_GRAPHICS_EXPOSURES, &withoutExposures);
}

CompositionTarget SeenPicture::target(const PixelRect& rootBounds)
{
    if (rootBounds != bounds_)
        resize(rootBounds);
    return {pixmap_.get(), picture_.get(), {0, 0}};
}

void SeenPicture::clear()
{
    picture_.reset();
    pixmap_.reset();
    bounds_ = {};
}

void SeenPicture::resize(const PixelRect& rootBounds)
{
    xcb_connection_t* const raw = connection_.get();
    const OwnedPixmap before = std::exchange(pixmap_, OwnedPixmap(connection_, connection_.newId()));
    xcb_create_pixmap(raw, connection_.screen().root_depth, pixmap_.get(), connection_.root(),
                      static_cast<std::uint16_t>(rootBounds.width), static_cast<std::uint16_t>(rootBounds.height));
    if (before)
        xcb_copy_area(raw, before.get(), pixmap_.get(), context_.get(), 0, 0, 0, 0,
                      static_cast<std::uint16_t>(bounds_.width), static_cast<std::uint16_t>(bounds_.height));
    bounds_ = rootBounds;
    picture_ = OwnedPicture(connection_, connection_.newId());
    xcb_render_create_picture(raw, picture_.get(), pixmap_.get(), connection_.rootFormat(), 0, nullptr);
}

} // namespace nimbrale::x11
