#include "platform/x11/virtual_display/display_keeping.h"

#include "platform/x11/server/handles.h"
#include "platform/x11/virtual_display/pointer_barriers.h"
#include "platform/x11/virtual_display/screen_readers.h"

#include <poll.h>

namespace nimbrale::x11 {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds pollInterval{1000};

/// The place of the display; empty where it is none to be kept.
PixelRect keptPlace(const RandrLayout& layout, xcb_atom_t name)
{
    const auto monitor = layout.monitor(name);
    if (!monitor)
        return {};
    const PixelRect& place = monitor->pixels;
    const PixelRect screen = layout.screenPixels();
    const bool isOnScreen = place.x + place.width <= screen.width && place.y + place.height <= screen.height;
    const xcb_randr_output_t output = monitor->outputs.empty() ? XCB_NONE : monitor->outputs.front();
    const bool isOutputIdle = output == XCB_NONE || layout.idleOutput(name, output) == output;
    return isOnScreen && isOutputIdle && !layout.realBounds(name).intersects(place) ? place : PixelRect{};
}

/// Returns early when the displays change.
void rest(Connection& connection)
{
    pollfd news{xcb_get_file_descriptor(connection.get()), POLLIN, 0};
    poll(&news, 1, static_cast<int>(pollInterval.count()));
    while (const Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection.get())}) {
    }
}

} // namespace

bool keepWhileRead(Connection& connection, const VirtualDisplayRecord& record, std::chrono::milliseconds longest)
{
    xcb_randr_select_input(connection.get(), connection.root(),
                           XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE | XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE);
    const RandrLayout layout(connection);
    PointerBarriers barriers(connection);
    const Clock::time_point end = Clock::now() + longest;
    while (!connection.isLost() && !VirtualDisplayClaim::isTaken(connection)) {
        const PixelRect place = keptPlace(layout, record.monitor);
        if (place.isEmpty() || Clock::now() >= end || !isScreenRead(connection))
            return !connection.isLost();
        barriers.surround(place);
        rest(connection);
    }
    return false;
}

} // namespace nimbrale::x11
