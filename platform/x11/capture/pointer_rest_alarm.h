#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/server/owned_id.h"

#include <chrono>
#include <xcb/sync.h>

namespace nimbrale::x11 {

/// Has the server tell when anything happens to a pointer that rested: a move, a button, and also a position that a
/// program sets, of which no event of the pointer tells. The server counts for how long each device has done nothing,
/// and the alarm goes off when that count falls back. While the pointer never rests it stays silent. Thread of its
/// connection only.
class PointerRestAlarm {
public:
    /// `connection` must outlive it. Waits for the server.
    explicit PointerRestAlarm(Connection& connection);

    /// Whether the server counts; nothing else may be called where it does not.
    [[nodiscard]] bool isPresent() const { return counter_ != XCB_NONE; }
    /// Whether the server is to look out for the end of a rest, as it does at first. That is work for it at each move.
    void setWanted(bool isWanted);
    /// Asks for how long the pointer has rested.
    [[nodiscard]] xcb_sync_query_counter_cookie_t ask() const;
    /// Reads the answer: whether the pointer had rested for so long that the alarm tells of whatever happens to it from
    /// then on. Waits for the server.
    [[nodiscard]] bool wasSet(xcb_sync_query_counter_cookie_t cookie) const;
    [[nodiscard]] bool isItsOwn(const xcb_sync_alarm_notify_event_t& event) const
    {
        return event.alarm == alarm_.get();
    }

    /// The alarm goes off after a rest of that length and no shorter one. Shorter than the time between two questions
    /// about a resting pointer, so that the second one finds it set.
    static constexpr std::chrono::milliseconds shortestRest{100};

private:
    void create();

    Connection& connection_;
    xcb_sync_counter_t counter_ = XCB_NONE;
    OwnedAlarm alarm_;
};

} // namespace nimbrale::x11
