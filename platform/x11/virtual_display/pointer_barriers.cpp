#include "platform/x11/virtual_display/pointer_barriers.h"

#include "platform/x11/displays/randr_layout.h"
#include "platform/x11/server/handles.h"

#include <algorithm>
#include <array>
#include <limits>

namespace nimbrale::x11 {

namespace {

struct Edge {
    int x1, y1, x2, y2;
    /// In which direction the pointer may cross: outward.
    std::uint32_t outward;
};

std::uint16_t coordinate(int value)
{
    return static_cast<std::uint16_t>(std::clamp<int>(value, 0, std::numeric_limits<std::int16_t>::max()));
}

} // namespace

PointerBarriers::PointerBarriers(Connection& connection) : connection_(connection) {}

PointerBarriers::~PointerBarriers()
{
    surround({});
}

void PointerBarriers::surround(const PixelRect& area)
{
    if (area == area_)
        return;
    xcb_connection_t* const raw = connection_.get();
    // A server too old for barriers refuses them, and the pointer is then kept out by the displays' edges alone.
    for (const xcb_xfixes_barrier_t barrier : barriers_)
        mayFail(raw, xcb_xfixes_delete_pointer_barrier_checked(raw, barrier));
    barriers_.clear();
    area_ = area;
    if (!area.isEmpty()) {
        const int right = area.x + area.width;
        const int bottom = area.y + area.height;
        const std::array<Edge, 4> edges = {
            Edge{area.x, area.y, area.x, bottom, XCB_XFIXES_BARRIER_DIRECTIONS_NEGATIVE_X},
            Edge{right, area.y, right, bottom, XCB_XFIXES_BARRIER_DIRECTIONS_POSITIVE_X},
            Edge{area.x, area.y, right, area.y, XCB_XFIXES_BARRIER_DIRECTIONS_NEGATIVE_Y},
            Edge{area.x, bottom, right, bottom, XCB_XFIXES_BARRIER_DIRECTIONS_POSITIVE_Y},
        };
        for (const Edge& edge : edges) {
            const xcb_xfixes_barrier_t barrier = connection_.newId();
            const xcb_void_cookie_t cookie = xcb_xfixes_create_pointer_barrier_checked(
                raw, barrier, connection_.root(), coordinate(edge.x1), coordinate(edge.y1), coordinate(edge.x2),
                coordinate(edge.y2), edge.outward, 0, nullptr);
            mayFail(raw, cookie);
            barriers_.push_back(barrier);
        }
    }
    connection_.flush();
}

} // namespace nimbrale::x11
