#include "platform/x11/panels/aside_windows.h"

#include "platform/x11/server/events.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace nimbrale::x11 {

namespace {

/// How many windows are asked about together at first. Mostly one of them is seen, and no more have to be asked.
constexpr std::ptrdiff_t firstQuestions = 16;

} // namespace

bool standsAside(const WindowAttributes& attributes)
{
    return !isViewable(attributes) || attributes->_class == XCB_WINDOW_CLASS_INPUT_ONLY;
}

void AsideWindows::handle(const xcb_generic_event_t& event)
{
    switch (eventType(event)) {
    case XCB_CREATE_NOTIFY:
        if (eventAs<xcb_create_notify_event_t>(event).parent == connection_.root())
            known_.insert(eventAs<xcb_create_notify_event_t>(event).window);
        return;
    case XCB_UNMAP_NOTIFY:
        if (eventAs<xcb_unmap_notify_event_t>(event).event == connection_.root())
            known_.insert(eventAs<xcb_unmap_notify_event_t>(event).window);
        return;
    case XCB_MAP_NOTIFY:
        known_.erase(eventAs<xcb_map_notify_event_t>(event).window);
        return;
    case XCB_REPARENT_NOTIFY:
        known_.erase(eventAs<xcb_reparent_notify_event_t>(event).window);
        return;
    case XCB_DESTROY_NOTIFY:
        known_.erase(eventAs<xcb_destroy_notify_event_t>(event).window);
        return;
    default:
        return;
    }
}

bool AsideWindows::areAll(const std::vector<xcb_window_t>& windows)
{
    std::vector<xcb_window_t> unknown;
    std::ranges::copy_if(windows, std::back_inserter(unknown),
                         [this](xcb_window_t window) { return !known_.contains(window); });
    auto next = unknown.cbegin();
    for (std::ptrdiff_t count = firstQuestions; next != unknown.cend(); count *= 2) {
        const auto end = std::next(next, std::min(count, std::distance(next, unknown.cend())));
        const std::vector<xcb_window_t> asked(next, end);
        const std::vector<WindowAttributes> attributes = attributesOf(connection_, asked);
        for (std::size_t index = 0; index < asked.size(); ++index) {
            if (!standsAside(attributes[index]))
                return false;
            known_.insert(asked[index]);
        }
        next = end;
    }
    return true;
}

} // namespace nimbrale::x11
