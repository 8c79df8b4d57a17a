#include "platform/x11/panels/panel_stack.h"

#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/server/manager_reminder.h"
#include "platform/x11/server/window_attributes.h"
#include "platform/x11/server/window_tree.h"

#include <algorithm>
#include <utility>

namespace nimbrale::x11 {

namespace {

constexpr std::size_t mostCorrections = 10;
constexpr std::chrono::seconds correctionSpan{1};

/// Puts `window` just below `sibling`, or on top without one.
void place(Connection& connection, xcb_window_t window, xcb_window_t sibling)
{
    const bool hasSibling = sibling != XCB_NONE;
    const std::uint32_t mode = hasSibling ? XCB_STACK_MODE_BELOW : XCB_STACK_MODE_ABOVE;
    const std::uint32_t values[] = {sibling, mode};
    const auto mask = static_cast<std::uint16_t>(hasSibling ? XCB_CONFIG_WINDOW_SIBLING | XCB_CONFIG_WINDOW_STACK_MODE
                                                            : XCB_CONFIG_WINDOW_STACK_MODE);
    // The sibling may be another program's and gone by now.
    mayFail(connection.get(),
            xcb_configure_window_checked(connection.get(), window, mask, hasSibling ? values : values + 1));
}

/// Compositing managers show anew all of a window that is said to be damaged.
void damage(Connection& connection, xcb_window_t window)
{
    xcb_connection_t* const raw = connection.get();
    const Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(raw, xcb_get_geometry(raw, window), nullptr));
    if (!geometry)
        return;
    reportDamage(connection, window, PixelRegion(0, 0, geometry->width, geometry->height));
}

} // namespace

PanelStack::PanelStack(Connection& connection, EventDispatcher& events, MainQueue& queue,
                       std::function<bool(xcb_window_t)> isInArea)
    : connection_(connection), queue_(queue), isInArea_(std::move(isInArea)), aside_(connection),
      limiter_(mostCorrections, correctionSpan),
      rootEvents_(connection, connection.root(), XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY),
      handler_(events.add({XCB_CREATE_NOTIFY, XCB_DESTROY_NOTIFY, XCB_MAP_NOTIFY, XCB_UNMAP_NOTIFY, XCB_REPARENT_NOTIFY,
                           XCB_CIRCULATE_NOTIFY, XCB_CONFIGURE_NOTIFY},
                          [this](const auto& event) {
                              aside_.handle(event);
                              handle(event);
                          }))
{}

bool PanelStack::isOurs(xcb_window_t window) const
{
    return std::any_of(entries_.begin(), entries_.end(), [&](const Entry& entry) { return entry.window == window; });
}

void PanelStack::raise(xcb_window_t window, int level, OnLockedScreen onLockedScreen)
{
    std::erase_if(entries_, [&](const Entry& entry) { return entry.window == window; });
    const auto front =
        std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) { return entry.level <= level; });
    entries_.insert(front, {window, level, onLockedScreen});
    restack();
}

void PanelStack::remove(xcb_window_t window)
{
    std::erase_if(entries_, [&](const Entry& entry) { return entry.window == window; });
}

Subscription PanelStack::keepBelow(xcb_window_t window)
{
    return keep(windowsAbove_, window);
}

Subscription PanelStack::giveWayTo(xcb_window_t locker)
{
    return keep(lockers_, locker);
}

Subscription PanelStack::keep(std::vector<xcb_window_t>& list, xcb_window_t window)
{
    list.push_back(window);
    restack();
    return {this, [alive = std::weak_ptr(alive_), &list, window](PanelStack* stack) {
                if (alive.expired())
                    return;
                list.erase(std::find(list.begin(), list.end(), window));
                stack->restack();
            }};
}

void PanelStack::handle(const xcb_generic_event_t& event)
{
    xcb_window_t moved = XCB_NONE;
    bool isAbove = false;
    switch (eventType(event)) {
    case XCB_CREATE_NOTIFY: {
        const auto& create = eventAs<xcb_create_notify_event_t>(event);
        if (create.parent == connection_.root())
            othersAbove_.insert(create.window);
        return;
    }
    case XCB_DESTROY_NOTIFY:
        othersAbove_.erase(eventAs<xcb_destroy_notify_event_t>(event).window);
        return;
    case XCB_MAP_NOTIFY:
        moved = eventAs<xcb_map_notify_event_t>(event).window;
        isAbove = othersAbove_.contains(moved);
        break;
    case XCB_REPARENT_NOTIFY:
        moved = eventAs<xcb_reparent_notify_event_t>(event).window;
        isAbove = eventAs<xcb_reparent_notify_event_t>(event).parent == connection_.root();
        break;
    case XCB_CIRCULATE_NOTIFY:
        moved = eventAs<xcb_circulate_notify_event_t>(event).window;
        isAbove = eventAs<xcb_circulate_notify_event_t>(event).place == XCB_PLACE_ON_TOP;
        break;
    case XCB_CONFIGURE_NOTIFY: {
        const auto& configure = eventAs<xcb_configure_notify_event_t>(event);
        if (configure.event != connection_.root())
            return;
        moved = configure.window;
        isAbove = isOurs(configure.above_sibling) || othersAbove_.contains(configure.above_sibling);
        break;
    }
    default:
        return;
    }
    // The windows that are to be above come and go at their own pace, and their places say where ours are to be.
    if ((isAbove || !windowsAbove_.empty() || !lockers_.empty()) && !isOurs(moved) && !isInArea_(moved))
        scheduleCheck();
}

void PanelStack::scheduleCheck()
{
    if (pendingCheck_ || entries_.empty())
        return;
    pendingCheck_ = queue_.schedule(limiter_.delay(CorrectionLimiter::Clock::now()), [this] { check(); });
}

void PanelStack::check()
{
    pendingCheck_.reset();
    if (restack())
        limiter_.note(CorrectionLimiter::Clock::now());
}

bool PanelStack::restack()
{
    if (entries_.empty())
        return false;
    const std::vector<xcb_window_t> bottomToTop = childrenOf(connection_, connection_.root());
    const std::vector<Wanted> wanted = wantedOrder(bottomToTop);
    if (isInPlace(bottomToTop, wanted))
        return false;
    xcb_window_t previous = XCB_NONE;
    Windows inFront;
    for (std::size_t index = 0; index < wanted.size(); ++index) {
        const Windows& below = wanted[index].below;
        // Whoever must be below the same as the one before is so behind it.
        if (index == 0 || below != wanted[index - 1].below) {
            const auto lowest = std::find_if(bottomToTop.begin(), bottomToTop.end(),
                                             [&](xcb_window_t window) { return below.contains(window); });
            const bool isPassed = index > 0 && lowest != bottomToTop.end() && wanted[index - 1].below.contains(*lowest);
            if (lowest != bottomToTop.end() && !isPassed)
                previous = *lowest;
        }
        place(connection_, wanted[index].window, previous);
        previous = wanted[index].window;
        inFront.insert(below.begin(), below.end());
    }
    // xfwm4 does not show anew what a window covers that comes to be in front of another by that one's being lowered.
    for (const xcb_window_t window : inFront)
        damage(connection_, window);
    connection_.flush();
    return true;
}

std::vector<PanelStack::Wanted> PanelStack::wantedOrder(const std::vector<xcb_window_t>& children) const
{
    const Windows above = shownOf(windowsAbove_);
    Windows aboveOrLocker = shownOf(lockers_);
    aboveOrLocker.insert(above.begin(), above.end());
    std::vector<Wanted> wanted;
    for (const OnLockedScreen group : {OnLockedScreen::shown, OnLockedScreen::covered}) {
        for (const Entry& entry : entries_) {
            if (entry.onLockedScreen == group &&
                std::find(children.begin(), children.end(), entry.window) != children.end())
                wanted.push_back({entry.window, group == OnLockedScreen::shown ? above : aboveOrLocker});
        }
    }
    return wanted;
}

bool PanelStack::isInPlace(const std::vector<xcb_window_t>& bottomToTop, const std::vector<Wanted>& wanted)
{
    othersAbove_.clear();
    Windows passed;
    std::vector<xcb_window_t> inFront;
    auto next = wanted.begin();
    for (auto window = bottomToTop.rbegin(); window != bottomToTop.rend() && next != wanted.end(); ++window) {
        if (!isOurs(*window) && isInArea_(*window))
            continue;
        const bool isBelow = std::includes(passed.begin(), passed.end(), next->below.begin(), next->below.end());
        if (next->below.contains(*window)) {
            passed.insert(*window);
        } else if (isBelow && *window == next->window) {
            ++next;
            continue;
        } else if (isOurs(*window)) {
            return false;
        } else if (isBelow) {
            inFront.push_back(*window);
        }
        othersAbove_.insert(*window);
    }
    return aside_.areAll(inFront);
}

PanelStack::Windows PanelStack::shownOf(const std::vector<xcb_window_t>& list) const
{
    const std::vector<WindowAttributes> attributes = attributesOf(connection_, list);
    Windows shown;
    for (std::size_t index = 0; index < list.size(); ++index) {
        const xcb_window_t topLevel =
            standsAside(attributes[index]) ? xcb_window_t{XCB_NONE} : topLevelOf(connection_, list[index]);
        if (topLevel != XCB_NONE)
            shown.insert(topLevel);
    }
    return shown;
}

} // namespace nimbrale::x11
