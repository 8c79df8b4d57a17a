#include "platform/x11/virtual_display/area_windows.h"

#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"

#include <algorithm>
#include <array>

namespace nimbrale::x11 {

namespace {

using namespace std::chrono_literals;

// Against a program that answers each of ours by one of its own: enough for no viewer to notice, and little work.
constexpr std::size_t mostRaises = 100;
constexpr auto raiseSpan = 200ms;

PixelRect placeOf(const xcb_configure_notify_event_t& event)
{
    const int borders = 2 * event.border_width;
    return {event.x, event.y, event.width + borders, event.height + borders};
}

} // namespace

PixelRect placeOf(AreaRole role, const PixelRect& area)
{
    if (role != AreaRole::picture && !area.isEmpty())
        return {area.x, 0, area.width, area.y + area.height};
    return area;
}

AreaWindows::AreaWindows(Connection& connection, EventDispatcher& events, MainQueue& queue)
    : connection_(connection), queue_(queue), parent_(connection.root()), raises_(mostRaises, raiseSpan),
      rootEvents_(connection, connection.root(), XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY),
      restackings_(events.add({XCB_CONFIGURE_NOTIFY, XCB_MAP_NOTIFY, XCB_REPARENT_NOTIFY, XCB_CIRCULATE_NOTIFY},
                              [this](const auto& event) { handle(event); }))
{}

void AreaWindows::handle(const xcb_generic_event_t& event)
{
    if (isMoveOfOurs(event)) {
        putInOrder();
        return;
    }
    if (!mayBeCoveredAfter(event))
        return;
    raiseSoon();
    if (isRaisedOverArea(event) && contest_.note(AreaContest::Clock::now()) && onContested)
        onContested();
}

void AreaWindows::add(xcb_window_t window, AreaRole role)
{
    entries_.push_back({window, role});
    if (!isInRoot(entries_.back()))
        reparent(entries_.back(), parent_);
}

void AreaWindows::replace(xcb_window_t gone, xcb_window_t window)
{
    for (Entry& entry : entries_) {
        if (entry.window != gone)
            continue;
        entry.window = window;
        configure(entry);
        if (!isInRoot(entry))
            reparent(entry, parent_);
    }
    putInOrder();
}

void AreaWindows::remove(xcb_window_t window)
{
    const auto entry =
        std::find_if(entries_.begin(), entries_.end(), [&](const Entry& each) { return each.window == window; });
    if (entry == entries_.end())
        return;
    if (!isInRoot(*entry))
        reparent(*entry, connection_.root());
    entries_.erase(entry);
}

void AreaWindows::forgetAll()
{
    entries_.clear();
    area_ = {};
    parent_ = connection_.root();
    raiseTimer_.reset();
}

xcb_window_t AreaWindows::frontmost() const
{
    return entries_.empty() ? Entry{}.window : entries_.back().window;
}

void AreaWindows::cover(const PixelRect& area)
{
    area_ = area;
    if (area.isEmpty())
        return;
    for (const Entry& entry : entries_)
        configure(entry);
}

void AreaWindows::configure(const Entry& entry) const
{
    const PixelRect place = placeOf(entry.role, area_);
    const std::array<std::uint32_t, 4> values = {
        static_cast<std::uint32_t>(place.x), static_cast<std::uint32_t>(place.y),
        static_cast<std::uint32_t>(place.width), static_cast<std::uint32_t>(place.height)};
    mayFail(connection_.get(), xcb_configure_window_checked(connection_.get(), entry.window,
                                                            XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y |
                                                                XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                                                            values.data()));
}

// A window that is moved comes to lie in front of its new siblings, so moving all in their order keeps it.
void AreaWindows::moveInto(xcb_window_t parent)
{
    parent_ = parent;
    for (const Entry& entry : entries_) {
        if (entry.role != AreaRole::shade)
            reparent(entry, parent);
    }
}

// One that is being destroyed is no loss.
void AreaWindows::reparent(const Entry& entry, xcb_window_t parent) const
{
    const PixelRect place = placeOf(entry.role, area_);
    mayFail(connection_.get(),
            xcb_reparent_window_checked(connection_.get(), entry.window, parent, static_cast<std::int16_t>(place.x),
                                        static_cast<std::int16_t>(place.y)));
}

bool AreaWindows::isInRoot(const Entry& entry) const
{
    return parent_ == connection_.root() || entry.role == AreaRole::shade;
}

bool AreaWindows::contains(xcb_window_t window) const
{
    return std::any_of(entries_.begin(), entries_.end(), [&](const Entry& entry) { return entry.window == window; });
}

// Whoever moves the frontmost window in the stack, a panel that gives way to a window that the user works in, leaves
// the ones behind it where they are; and other programs may move any of them.
bool AreaWindows::isMoveOfOurs(const xcb_generic_event_t& event) const
{
    if (eventType(event) != XCB_CONFIGURE_NOTIFY)
        return false;
    const auto& configure = eventAs<xcb_configure_notify_event_t>(event);
    return configure.event == connection_.root() && contains(configure.window);
}

bool AreaWindows::mayBeCoveredAfter(const xcb_generic_event_t& event) const
{
    const xcb_window_t root = connection_.root();
    if (entries_.empty() || area_.isEmpty())
        return false;
    switch (eventType(event)) {
    case XCB_CONFIGURE_NOTIFY: {
        const auto& configure = eventAs<xcb_configure_notify_event_t>(event);
        return configure.event == root && !contains(configure.window) &&
               placeOf(AreaRole::backdrop, area_).intersects(placeOf(configure));
    }
    case XCB_MAP_NOTIFY: {
        const auto& map = eventAs<xcb_map_notify_event_t>(event);
        return map.event == root && !contains(map.window);
    }
    case XCB_REPARENT_NOTIFY: {
        const auto& reparent = eventAs<xcb_reparent_notify_event_t>(event);
        return reparent.parent == root && !contains(reparent.window);
    }
    default: {
        const auto& circulate = eventAs<xcb_circulate_notify_event_t>(event);
        return circulate.event == root && !contains(circulate.window);
    }
    }
}

// A window that is dragged over the area does not lie just in front of one of ours: that was raised in between.
bool AreaWindows::isRaisedOverArea(const xcb_generic_event_t& event) const
{
    if (eventType(event) != XCB_CONFIGURE_NOTIFY)
        return false;
    const auto& configure = eventAs<xcb_configure_notify_event_t>(event);
    return contains(configure.above_sibling) && placeOf(configure).intersects(area_);
}

// At once where that does not happen all the time: each moment counts.
void AreaWindows::raiseSoon()
{
    if (raiseTimer_)
        return;
    const auto wait = raises_.delay(CorrectionLimiter::Clock::now());
    if (wait <= CorrectionLimiter::Clock::duration::zero()) {
        raise();
        return;
    }
    raiseTimer_ = queue_.schedule(wait, [this] {
        raiseTimer_.reset();
        raise();
    });
}

void AreaWindows::raise()
{
    raises_.note(CorrectionLimiter::Clock::now());
    const auto front =
        std::find_if(entries_.rbegin(), entries_.rend(), [this](const Entry& entry) { return isInRoot(entry); });
    if (front == entries_.rend())
        return;
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    mayFail(connection_.get(),
            xcb_configure_window_checked(connection_.get(), front->window, XCB_CONFIG_WINDOW_STACK_MODE, &above));
    putInOrder();
}

// Behind the frontmost of those with the same parent.
void AreaWindows::putInOrder() const
{
    const auto isThere = [this](const Entry& entry) { return isInRoot(entry); };
    stackBelow(std::find_if(entries_.rbegin(), entries_.rend(), isThere));
    stackBelow(std::find_if_not(entries_.rbegin(), entries_.rend(), isThere));
    connection_.flush();
}

// Those that stand there already stay where they are, and nobody hears of it.
void AreaWindows::stackBelow(const std::vector<Entry>::const_reverse_iterator& front) const
{
    if (front == entries_.rend())
        return;
    xcb_window_t above = front->window;
    for (auto entry = std::next(front); entry != entries_.rend(); ++entry) {
        if (isInRoot(*entry) != isInRoot(*front))
            continue;
        const std::array<std::uint32_t, 2> values = {above, XCB_STACK_MODE_BELOW};
        mayFail(connection_.get(),
                xcb_configure_window_checked(connection_.get(), entry->window,
                                             XCB_CONFIG_WINDOW_SIBLING | XCB_CONFIG_WINDOW_STACK_MODE, values.data()));
        above = entry->window;
    }
}

} // namespace nimbrale::x11
