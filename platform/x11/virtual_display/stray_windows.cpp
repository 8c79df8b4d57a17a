#include "platform/x11/virtual_display/stray_windows.h"

#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/server/window_attributes.h"

#include <algorithm>
#include <array>

namespace nimbrale::x11 {

namespace {

using namespace std::chrono_literals;

// Window managers take several steps to put a window somewhere.
constexpr auto settleDelay = 100ms;
// EWMH's: who asks is a pager, the gravity is the top left corner's, and x and y are given.
constexpr std::uint32_t fromPager = 2;
constexpr std::uint32_t everyDesktop = 0xffffffff;
constexpr std::uint32_t moveToCorner = 1 | 1U << 8 | 1U << 9 | fromPager << 12;

PixelPoint centerOf(const PixelRect& rect)
{
    return {rect.x + rect.width / 2, rect.y + rect.height / 2};
}

} // namespace

StrayWindows::StrayWindows(Connection& connection, EventDispatcher& events, MainQueue& queue)
    : connection_(connection), queue_(queue),
      rootEvents_(connection, connection.root(), XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE),
      subscription_(events.add({XCB_CONFIGURE_NOTIFY, XCB_MAP_NOTIFY, XCB_REPARENT_NOTIFY, XCB_PROPERTY_NOTIFY},
                               [this](const auto& event) { handle(event); }))
{}

void StrayWindows::setPlace(const PixelRect& virtualDisplay, const PixelRect& displays)
{
    virtualDisplay_ = virtualDisplay;
    displays_ = displays;
    if (virtualDisplay.isEmpty())
        timer_.reset();
    else
        checkSoon();
}

void StrayWindows::handle(const xcb_generic_event_t& event)
{
    if (virtualDisplay_.isEmpty())
        return;
    if (eventType(event) == XCB_PROPERTY_NOTIFY) {
        propertyChanged(eventAs<xcb_property_notify_event_t>(event));
        return;
    }
    if (eventType(event) == XCB_CONFIGURE_NOTIFY) {
        const auto& configure = eventAs<xcb_configure_notify_event_t>(event);
        const PixelRect place{configure.x, configure.y, configure.width, configure.height};
        if (configure.event != connection_.root() || !place.intersects(virtualDisplay_))
            return;
    }
    checkSoon();
}

void StrayWindows::propertyChanged(const xcb_property_notify_event_t& event)
{
    if (event.window == connection_.root() &&
        (event.atom == connection_.atom("_NET_CURRENT_DESKTOP") ||
         event.atom == connection_.atom("_NET_DESKTOP_VIEWPORT") || event.atom == connection_.atom("_NET_CLIENT_LIST")))
        checkSoon();
}

void StrayWindows::checkSoon()
{
    if (!timer_)
        timer_ = queue_.schedule(settleDelay, [this] {
            timer_.reset();
            check();
        });
}

void StrayWindows::check()
{
    const std::vector<Stray> strays = findStrays();
    readDesktops(strays);
    for (const Stray& stray : strays)
        bringBack(stray);
    leaveDesktop();
    connection_.flush();
}

std::vector<StrayWindows::Stray> StrayWindows::findStrays() const
{
    std::vector<Stray> strays;
    for (const xcb_window_t client :
         connection_.numbers32(connection_.root(), connection_.atom("_NET_CLIENT_LIST"), XCB_ATOM_WINDOW)) {
        const std::optional<PixelRect> place = placeOf(client);
        if (!place || !virtualDisplay_.contains(centerOf(*place)))
            continue;
        strays.push_back(
            {client, *place, connection_.property32(client, connection_.atom("_NET_WM_DESKTOP"), XCB_ATOM_CARDINAL)});
    }
    return strays;
}

void StrayWindows::readDesktops(const std::vector<Stray>& strays)
{
    const xcb_window_t root = connection_.root();
    desktop_ = connection_.property32(root, connection_.atom("_NET_CURRENT_DESKTOP"), XCB_ATOM_CARDINAL).value_or(0);
    origins_ = connection_.numbers32(root, connection_.atom("_NET_DESKTOP_VIEWPORT"), XCB_ATOM_CARDINAL);
    // Not each window manager that shows several desktops at once says where they lie. One that a stray is on may be
    // the one that is shown on the virtual display, and the user's work may have gone there with it.
    const bool hasStray =
        std::any_of(strays.begin(), strays.end(), [&](const Stray& stray) { return stray.desktop == desktop_; });
    if (!isOut(desktop_) && !hasStray)
        visibleDesktop_ = desktop_;
}

/// Whether the window manager shows that desktop on the virtual display.
bool StrayWindows::isOut(std::uint32_t desktop) const
{
    const std::size_t index = 2 * std::size_t{desktop};
    return index + 1 < origins_.size() &&
           virtualDisplay_.contains({static_cast<int>(origins_[index]), static_cast<int>(origins_[index + 1])});
}

/// The next window would open there.
void StrayWindows::leaveDesktop()
{
    const auto now = CorrectionLimiter::Clock::now();
    if (!isOut(desktop_) || !visibleDesktop_ || corrections_.delay(now) > 0ns)
        return;
    corrections_.note(now);
    ask("_NET_CURRENT_DESKTOP", connection_.root(), {*visibleDesktop_, XCB_CURRENT_TIME});
}

void StrayWindows::bringBack(const Stray& stray)
{
    const auto now = CorrectionLimiter::Clock::now();
    if (corrections_.delay(now) > 0ns)
        return;
    corrections_.note(now);
    const auto& [window, place, desktop] = stray;
    const auto active =
        connection_.property32(connection_.root(), connection_.atom("_NET_ACTIVE_WINDOW"), XCB_ATOM_WINDOW);
    if (desktop && desktop != everyDesktop && visibleDesktop_ && desktop != visibleDesktop_) {
        ask("_NET_WM_DESKTOP", window, {*visibleDesktop_, fromPager});
    } else {
        const int x = std::max(displays_.x, std::min(place.x, displays_.x + displays_.width - place.width));
        const int y = std::max(displays_.y, std::min(place.y, displays_.y + displays_.height - place.height));
        ask("_NET_MOVERESIZE_WINDOW", window,
            {moveToCorner, static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y)});
    }
    if (active == window)
        ask("_NET_ACTIVE_WINDOW", window, {fromPager, XCB_CURRENT_TIME});
    if (onReturned)
        onReturned();
}

/// Of a window that is shown, in pixels of the root.
std::optional<PixelRect> StrayWindows::placeOf(xcb_window_t window) const
{
    xcb_connection_t* const raw = connection_.get();
    const auto geometryAsked = xcb_get_geometry(raw, window);
    const auto originAsked = xcb_translate_coordinates(raw, window, connection_.root(), 0, 0);
    const auto attributesAsked = xcb_get_window_attributes(raw, window);
    const Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(raw, geometryAsked, nullptr));
    const Reply<xcb_translate_coordinates_reply_t> origin(xcb_translate_coordinates_reply(raw, originAsked, nullptr));
    const Reply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(raw, attributesAsked, nullptr));
    if (!geometry || !origin || !isViewable(attributes))
        return std::nullopt;
    return PixelRect{origin->dst_x, origin->dst_y, geometry->width, geometry->height};
}

void StrayWindows::ask(const char* message, xcb_window_t window, const std::vector<std::uint32_t>& values)
{
    xcb_client_message_event_t event = {};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = connection_.atom(message);
    std::copy(values.begin(), values.end(), event.data.data32);
    xcb_send_event(connection_.get(), 0, connection_.root(),
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&event));
}

} // namespace nimbrale::x11
