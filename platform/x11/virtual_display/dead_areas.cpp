#include "platform/x11/virtual_display/dead_areas.h"

#include "platform/x11/server/owned_id.h"
#include "platform/x11/server/pixel_region.h"

#include <array>

namespace nimbrale::x11 {

std::vector<PixelRect> deadAreas(const PixelRect& screen, const PixelRect& displays, const PixelRect& virtualDisplay)
{
    PixelRegion region(screen);
    region -= PixelRegion(displays);
    region -= PixelRegion(virtualDisplay);
    return region.rects();
}

void paintBlack(Connection& connection, const std::vector<PixelRect>& areas)
{
    xcb_connection_t* const raw = connection.get();
    const std::array<std::uint32_t, 2> values = {connection.screen().black_pixel, XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS};
    const OwnedGraphicsContext context(connection, connection.newId());
    xcb_create_gc(raw, context.get(), connection.root(), XCB_GC_FOREGROUND | XCB_GC_SUBWINDOW_MODE, values.data());
    const std::vector<xcb_rectangle_t> rects = PixelRegion(areas).serverRects();
    xcb_poly_fill_rectangle(raw, connection.root(), context.get(), static_cast<std::uint32_t>(rects.size()),
                            rects.data());
}

} // namespace nimbrale::x11
