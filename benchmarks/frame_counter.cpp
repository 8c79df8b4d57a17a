#include "benchmarks/frame_counter.h"

#include "benchmarks/measure.h"
#include "tests/support/x_reply.h"

#include <optional>
#include <xcb/damage.h>
#include <xcb/xcb.h>

namespace nimbrale::benchmarks {

using test::Reply;

namespace {

constexpr xcb_timestamp_t samePictureMilliseconds = 4;

} // namespace

void FrameCounter::Disconnect::operator()(xcb_connection_t* connection) const
{
    xcb_disconnect(connection);
}

FrameCounter::FrameCounter(const test::PrivateDesktop& desktop, std::uint32_t window)
    : connection_(xcb_connect(desktop.displayName().c_str(), nullptr))
{
    xcb_connection_t* connection = connection_.get();
    const xcb_query_extension_reply_t* extension = xcb_get_extension_data(connection, &xcb_damage_id);
    if (!extension || !extension->present)
        throw Failure("the X server has no DAMAGE");
    firstEvent_ = extension->first_event;
    const Reply<xcb_damage_query_version_reply_t> version(
        xcb_damage_query_version_reply(connection, xcb_damage_query_version(connection, 1, 1), nullptr));
    const auto created = xcb_damage_create_checked(connection, xcb_generate_id(connection), window,
                                                   XCB_DAMAGE_REPORT_LEVEL_RAW_RECTANGLES);
    const Reply<xcb_generic_error_t> error(xcb_request_check(connection, created));
    if (error)
        throw Failure("the window that shows the region is gone");
    // The server reports the whole window once at the start.
    static_cast<void>(take());
}

FrameCounter::~FrameCounter() = default;

int FrameCounter::take()
{
    xcb_connection_t* connection = connection_.get();
    const Reply<xcb_get_input_focus_reply_t> upToDate(
        xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    int count = 0;
    std::optional<xcb_timestamp_t> last;
    while (const Reply<xcb_generic_event_t> event{xcb_poll_for_event(connection)}) {
        if ((event->response_type & 0x7f) != firstEvent_ + XCB_DAMAGE_NOTIFY)
            continue;
        const xcb_timestamp_t time = reinterpret_cast<const xcb_damage_notify_event_t*>(event.get())->timestamp;
        if (last && time - *last < samePictureMilliseconds)
            continue;
        last = time;
        ++count;
    }
    return count;
}

} // namespace nimbrale::benchmarks
