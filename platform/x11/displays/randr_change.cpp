#include "platform/x11/displays/randr_change.h"

#include "platform/x11/server/handles.h"

#include <array>
#include <sys/uio.h>
#include <utility>
#include <xcb/xcbext.h>

namespace nimbrale::x11 {

namespace {

/// xcb_randr_set_monitor_checked of libxcb 1.15 sends a part that it never filled in, which ends the process, so the
/// request is put together here.
xcb_void_cookie_t sendSetMonitor(xcb_connection_t* connection, xcb_window_t root,
                                 const xcb_randr_monitor_info_t& monitor, xcb_randr_output_t output)
{
    struct {
        xcb_randr_set_monitor_request_t header;
        xcb_randr_monitor_info_t monitor;
        xcb_randr_output_t output;
    } request{{0, 0, 0, root}, monitor, output};
    const xcb_protocol_request_t protocol{1, &xcb_randr_id, XCB_RANDR_SET_MONITOR, 1};
    // xcb writes into the two parts before the first.
    std::array<iovec, 3> parts{};
    parts[2] = {&request, sizeof request - (monitor.nOutput == 0 ? sizeof output : 0)};
    return {xcb_send_request(connection, XCB_REQUEST_CHECKED, &parts[2], &protocol)};
}

} // namespace

RandrChange::~RandrChange()
{
    for (const Request& request : requests_)
        mayFail(connection_.get(), request.cookie);
}

void RandrChange::setMonitor(xcb_atom_t name, const PixelRect& pixels, const PixelPitch& pitch,
                             xcb_randr_output_t output)
{
    xcb_randr_monitor_info_t monitor = {};
    monitor.name = name;
    monitor.x = static_cast<std::int16_t>(pixels.x);
    monitor.y = static_cast<std::int16_t>(pixels.y);
    monitor.width = static_cast<std::uint16_t>(pixels.width);
    monitor.height = static_cast<std::uint16_t>(pixels.height);
    const SizeInMillimeters size = millimeters(pixels.width, pixels.height, pitch);
    monitor.width_in_millimeters = size.width;
    monitor.height_in_millimeters = size.height;
    monitor.nOutput = output == XCB_NONE ? 0 : 1;
    requests_.push_back({sendSetMonitor(connection_.get(), connection_.root(), monitor, output),
                         "The X server did not add the virtual display."});
}

void RandrChange::deleteMonitor(xcb_atom_t name)
{
    requests_.push_back({xcb_randr_delete_monitor_checked(connection_.get(), connection_.root(), name),
                         "The X server did not remove the virtual display."});
}

void RandrChange::setScreenSize(int width, int height, const PixelPitch& pitch,
                                const std::vector<RandrPanning>& pannings)
{
    sendScreenSize(width, height, millimeters(width, height, pitch), pannings);
}

void RandrChange::sendScreenSize(int width, int height, const SizeInMillimeters& size,
                                 const std::vector<RandrPanning>& pannings)
{
    const xcb_void_cookie_t cookie =
        xcb_randr_set_screen_size_checked(connection_.get(), connection_.root(), static_cast<std::uint16_t>(width),
                                          static_cast<std::uint16_t>(height), size.width, size.height);
    requests_.push_back({cookie, "The X server cannot make its screen " + std::to_string(width) + "×" +
                                     std::to_string(height) + " pixels big."});
    for (const RandrPanning& panning : pannings) {
        const PixelRect& area = panning.area;
        const PixelRect& tracking = panning.tracking;
        const xcb_randr_set_panning_cookie_t restored =
            xcb_randr_set_panning(connection_.get(), panning.crtc, XCB_CURRENT_TIME, static_cast<std::uint16_t>(area.x),
                                  static_cast<std::uint16_t>(area.y), static_cast<std::uint16_t>(area.width),
                                  static_cast<std::uint16_t>(area.height), static_cast<std::uint16_t>(tracking.x),
                                  static_cast<std::uint16_t>(tracking.y), static_cast<std::uint16_t>(tracking.width),
                                  static_cast<std::uint16_t>(tracking.height), panning.borders[0], panning.borders[1],
                                  panning.borders[2], panning.borders[3]);
        // Refused where the display has gone meanwhile, and its panning with it.
        xcb_discard_reply(connection_.get(), restored.sequence);
    }
}

// The server tells nobody of a size that is as it was, but a size in millimeters counts too.
void RandrChange::repeatScreenSize(int width, int height, const PixelPitch& pitch,
                                   const std::vector<RandrPanning>& pannings)
{
    const SizeInMillimeters size = millimeters(width, height, pitch);
    sendScreenSize(width, height, {size.width + 1, size.height}, pannings);
    sendScreenSize(width, height, size, pannings);
}

Result<void> RandrChange::finish()
{
    Result<void> result;
    for (const Request& request : std::exchange(requests_, {})) {
        const Reply<xcb_generic_error_t> error(xcb_request_check(connection_.get(), request.cookie));
        if (error && result) {
            result =
                fail(ErrorCode::unsupported, request.failure + " (X error " + std::to_string(error->error_code) + ")");
        } else if (result && connection_.isLost()) {
            result = fail(ErrorCode::permanent, request.failure);
        }
    }
    return result;
}

} // namespace nimbrale::x11
