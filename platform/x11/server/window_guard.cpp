#include "platform/x11/server/window_guard.h"

#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"

#include <utility>

namespace nimbrale::x11 {

namespace {

constexpr std::size_t mostRepairs = 10;
constexpr std::chrono::seconds repairSpan{1};
// Of the conventions for WM_STATE.
constexpr std::uint32_t iconicState = 3;

} // namespace

WindowGuard::WindowGuard(Connection& connection, EventDispatcher& events, MainQueue& queue,
                         std::function<Wanted()> wanted, std::function<void(WindowDamage)> repair)
    : connection_(connection), queue_(queue), wanted_(std::move(wanted)), repair_(std::move(repair)),
      limiter_(mostRepairs, repairSpan),
      handler_(events.add({XCB_UNMAP_NOTIFY, XCB_CONFIGURE_NOTIFY, XCB_REPARENT_NOTIFY, XCB_DESTROY_NOTIFY},
                          [this](const auto& event) {
                              if (isSuspicious(event))
                                  scheduleCheck();
                          }))
{}

// What the owner does itself is reported in the same way, and may be out of date by the time it is: only the check that
// follows is sure.
bool WindowGuard::isSuspicious(const xcb_generic_event_t& event) const
{
    const Wanted wanted = wanted_();
    switch (eventType(event)) {
    case XCB_UNMAP_NOTIFY:
        return wanted.isShown && eventAs<xcb_unmap_notify_event_t>(event).event == wanted.window;
    case XCB_REPARENT_NOTIFY: {
        const auto& reparent = eventAs<xcb_reparent_notify_event_t>(event);
        return !wanted.isManaged && reparent.event == wanted.window && reparent.parent != wanted.parent;
    }
    case XCB_DESTROY_NOTIFY:
        return eventAs<xcb_destroy_notify_event_t>(event).event == wanted.window;
    case XCB_CONFIGURE_NOTIFY: {
        const auto& configure = eventAs<xcb_configure_notify_event_t>(event);
        return !wanted.isManaged && configure.event == wanted.window && configure.window == wanted.window &&
               PixelRect{configure.x, configure.y, configure.width, configure.height} != wanted.pixels;
    }
    default:
        return false;
    }
}

void WindowGuard::scheduleCheck()
{
    if (!pendingCheck_)
        pendingCheck_ = queue_.schedule(limiter_.delay(CorrectionLimiter::Clock::now()), [this] { check(); });
}

void WindowGuard::check()
{
    pendingCheck_.reset();
    const std::optional<WindowDamage> damage = findDamage();
    if (!damage)
        return;
    limiter_.note(CorrectionLimiter::Clock::now());
    const auto repair = repair_;
    repair(*damage);
}

std::optional<WindowDamage> WindowGuard::findDamage() const
{
    const Wanted wanted = wanted_();
    xcb_connection_t* const raw = connection_.get();
    const auto attributesAsked = xcb_get_window_attributes(raw, wanted.window);
    const auto geometryAsked = xcb_get_geometry(raw, wanted.window);
    const auto treeAsked = xcb_query_tree(raw, wanted.window);
    const Reply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(raw, attributesAsked, nullptr));
    const Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(raw, geometryAsked, nullptr));
    const Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(raw, treeAsked, nullptr));
    if (!attributes || !geometry || !tree)
        return WindowDamage::destroyed;
    const bool isUnmapped = wanted.isShown && attributes->map_state == XCB_MAP_STATE_UNMAPPED;
    if (wanted.isManaged)
        return isUnmapped && !isMadeSmall(wanted.window) ? std::optional(WindowDamage::displaced) : std::nullopt;
    if (tree->parent != wanted.parent)
        return WindowDamage::adopted;
    const PixelRect pixels{geometry->x, geometry->y, geometry->width, geometry->height};
    return isUnmapped || pixels != wanted.pixels ? std::optional(WindowDamage::displaced) : std::nullopt;
}

bool WindowGuard::isMadeSmall(xcb_window_t window) const
{
    const xcb_atom_t state = connection_.atom("WM_STATE");
    return connection_.property32(window, state, state) == iconicState;
}

} // namespace nimbrale::x11
