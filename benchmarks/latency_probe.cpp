#include "benchmarks/latency_probe.h"

#include "benchmarks/measure.h"
#include "tests/support/x_reply.h"

#include <QRect>

#include <algorithm>
#include <array>
#include <chrono>
#include <poll.h>
#include <thread>
#include <xcb/damage.h>
#include <xcb/xcb.h>

namespace nimbrale::benchmarks {

using test::Reply;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::uint16_t side = 64;
/// The watched pixel lies inside the window, clear of a pointer's or a neighbour's edge.
constexpr int inset = 5;
constexpr std::chrono::milliseconds patience{300};
constexpr std::chrono::milliseconds pause{100};
/// Somewhat more than a frame at 60 fps, so that changes fall at any moment between two frames.
constexpr unsigned greatestExtraMicroseconds = 17000;

} // namespace

void LatencyProbe::Disconnect::operator()(xcb_connection_t* connection) const
{
    xcb_disconnect(connection);
}

LatencyProbe::LatencyProbe(const test::PrivateDesktop& desktop, const QPoint& place,
                           const std::vector<Showing>& showings)
    : connection_(xcb_connect(desktop.displayName().c_str(), nullptr))
{
    xcb_connection_t* connection = connection_.get();
    const xcb_screen_t& screen = desktop.screen();
    const xcb_query_extension_reply_t* extension = xcb_get_extension_data(connection, &xcb_damage_id);
    if (!extension || !extension->present)
        throw Failure("the X server has no DAMAGE");
    firstEvent_ = extension->first_event;
    const Reply<xcb_damage_query_version_reply_t> version(
        xcb_damage_query_version_reply(connection, xcb_damage_query_version(connection, 1, 1), nullptr));
    for (const Showing& showing : showings)
        watch(showing);

    window_ = xcb_generate_id(connection);
    const std::array<std::uint32_t, 2> values{screen.black_pixel, 1};
    xcb_create_window(connection, screen.root_depth, window_, screen.root, static_cast<std::int16_t>(place.x()),
                      static_cast<std::int16_t>(place.y()), side, side, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      screen.root_visual, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values.data());
    xcb_map_window(connection, window_);
    context_ = xcb_generate_id(connection);
    xcb_create_gc(connection, context_, window_, 0, nullptr);
    xcb_flush(connection);
    test::sleepFor(std::chrono::milliseconds{500});
}

LatencyProbe::~LatencyProbe() = default;

void LatencyProbe::watch(const Showing& showing)
{
    xcb_connection_t* connection = connection_.get();
    const Reply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(connection, xcb_get_geometry(connection, showing.shower), nullptr));
    if (!geometry)
        throw Failure("the window that shows the region cannot be watched");
    const QPoint corner(geometry->x, geometry->y);
    const bool isWatched = std::any_of(watched_.begin(), watched_.end(),
                                       [&](const Showing& other) { return other.shower == showing.shower; });
    if (!isWatched)
        xcb_damage_create(connection, xcb_generate_id(connection), showing.shower,
                          XCB_DAMAGE_REPORT_LEVEL_RAW_RECTANGLES);
    watched_.push_back({showing.shower, showing.place - corner + QPoint(inset, inset)});
}

std::vector<std::vector<double>> LatencyProbe::measure(int count)
{
    std::vector<std::vector<double>> milliseconds(watched_.size());
    std::uniform_int_distribution<unsigned> extra(0, greatestExtraMicroseconds);
    std::uniform_int_distribution<std::uint32_t> upperColor(0, 0xffff);
    for (int index = 0; index < count; ++index) {
        // The lowest part counts, so that no color follows itself.
        const auto lowest = static_cast<std::uint32_t>(index % 255 + 1);
        const std::vector<double> times = measureOne(upperColor(random_) << 8 | lowest);
        for (std::size_t place = 0; place < times.size(); ++place)
            milliseconds[place].push_back(times[place]);
        test::sleepFor(pause);
        std::this_thread::sleep_for(std::chrono::microseconds{extra(random_)});
    }
    return milliseconds;
}

std::vector<double> LatencyProbe::measureOne(std::uint32_t color)
{
    xcb_connection_t* connection = connection_.get();
    while (const Reply<xcb_generic_event_t> old{xcb_poll_for_event(connection)}) {
    }
    xcb_change_gc(connection, context_, XCB_GC_FOREGROUND, &color);
    const xcb_rectangle_t whole{0, 0, side, side};
    const double never = std::chrono::duration<double, std::milli>(patience).count();
    std::vector<double> times(watched_.size(), never);
    std::size_t missing = watched_.size();
    const auto start = Clock::now();
    xcb_poly_fill_rectangle(connection, window_, context_, 1, &whole);
    xcb_flush(connection);
    while (missing > 0 && Clock::now() < start + patience) {
        const Reply<xcb_generic_event_t> event(xcb_poll_for_event(connection));
        if (!event) {
            pollfd waiting{xcb_get_file_descriptor(connection), POLLIN, 0};
            poll(&waiting, 1, 50);
            continue;
        }
        const double time = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        for (std::size_t index = 0; index < times.size(); ++index) {
            if (times[index] == never && concerns(event.get(), watched_[index]) && isShown(watched_[index], color)) {
                times[index] = time;
                --missing;
            }
        }
    }
    return times;
}

bool LatencyProbe::concerns(const void* event, const Showing& showing) const
{
    if ((static_cast<const xcb_generic_event_t*>(event)->response_type & 0x7f) != firstEvent_ + XCB_DAMAGE_NOTIFY)
        return false;
    const auto& damage = *static_cast<const xcb_damage_notify_event_t*>(event);
    const QRect area(damage.area.x, damage.area.y, damage.area.width, damage.area.height);
    return damage.drawable == showing.shower && area.contains(showing.place);
}

bool LatencyProbe::isShown(const Showing& showing, std::uint32_t color) const
{
    const Reply<xcb_get_image_reply_t> image(
        xcb_get_image_reply(connection_.get(),
                            xcb_get_image(connection_.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, showing.shower,
                                          static_cast<std::int16_t>(showing.place.x()),
                                          static_cast<std::int16_t>(showing.place.y()), 1, 1, ~0U),
                            nullptr));
    if (!image)
        return false;
    const std::uint8_t* bytes = xcb_get_image_data(image.get());
    return (static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[1]) << 8 | bytes[0]) == color;
}

} // namespace nimbrale::benchmarks
