#include "platform/x11/server/manager_reminder.h"

#include "platform/x11/server/handles.h"
#include "platform/x11/server/owned_id.h"

#include <array>
#include <chrono>
#include <vector>
#include <xcb/damage.h>
#include <xcb/xfixes.h>

namespace nimbrale::x11 {

namespace {

/// How long after the last drawing it is reminded, and how long after that once more: a busy one may take longer over a
/// frame than the first time.
constexpr std::array reminders = {std::chrono::milliseconds(100), std::chrono::milliseconds(500)};

} // namespace

void reportDamage(Connection& connection, xcb_window_t window, const PixelRegion& region)
{
    if (!connection.extensions().damage.isPresent)
        return;
    xcb_connection_t* const raw = connection.get();
    const std::vector<xcb_rectangle_t> rects = region.serverRects();
    const OwnedRegion damaged(connection, connection.newId());
    xcb_xfixes_create_region(raw, damaged.get(), static_cast<std::uint32_t>(rects.size()), rects.data());
    mayFail(raw, xcb_damage_add_checked(raw, window, damaged.get()));
}

void remindManager(Connection& connection, xcb_window_t window, const PixelRegion& region)
{
    reportDamage(connection, window, region);
    xcb_connection_t* const raw = connection.get();
    mayFail(raw, xcb_change_property_checked(raw, XCB_PROP_MODE_APPEND, window, connection.atom("_NIMBRALE_REMINDER"),
                                             XCB_ATOM_STRING, 8, 0, ""));
    connection.flush();
}

void ManagerReminder::drawn(const PixelRegion& region)
{
    region_ |= region;
    schedule(0);
}

void ManagerReminder::stop()
{
    timer_.reset();
    region_.clear();
}

void ManagerReminder::schedule(std::size_t done)
{
    if (done == reminders.size()) {
        stop();
        return;
    }
    timer_ = queue_.schedule(reminders[done], [this, done] {
        remindManager(connection_, window_, region_);
        schedule(done + 1);
    });
}

} // namespace nimbrale::x11
