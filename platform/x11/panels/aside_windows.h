#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/server/window_attributes.h"

#include <unordered_set>
#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Whether nothing of a window is seen, so that it may be in front of anything.
[[nodiscard]] bool standsAside(const WindowAttributes& attributes);

/// Which of the root's children stand aside. It hears which of them come, go and are shown, and asks about each of the
/// others once: there may be tens of thousands in front of a panel. Main thread only.
class AsideWindows {
public:
    /// `connection` must outlive it, and hear of the root's substructure.
    explicit AsideWindows(Connection& connection) : connection_(connection) {}
    AsideWindows(const AsideWindows&) = delete;
    AsideWindows& operator=(const AsideWindows&) = delete;

    /// To be told of every event that windows come, go, are shown or hidden by.
    void handle(const xcb_generic_event_t& event);
    /// Whether all of these children of the root do, as far as events were handled. Waits for the server where it is
    /// not known of one.
    [[nodiscard]] bool areAll(const std::vector<xcb_window_t>& windows);

private:
    Connection& connection_;
    std::unordered_set<xcb_window_t> known_;
};

} // namespace nimbrale::x11
