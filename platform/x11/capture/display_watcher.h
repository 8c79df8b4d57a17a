#pragma once

#include "platform/observers.h"
#include "platform/x11/capture/display_places.h"
#include "platform/x11/displays/randr_layout.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_routes.h"

#include <vector>

namespace nimbrale::x11 {

/// Follows where the displays lie over the connection that captures them, so that its news and its pictures come in the
/// order in which the server made them. Thread of its connection only, but for the constructor, which may run before
/// that thread does.
class DisplayWatcher {
public:
    /// Both must outlive it. The connection hears of the root's structure already.
    DisplayWatcher(Connection& connection, EventRoutes& events);
    DisplayWatcher(const DisplayWatcher&) = delete;
    DisplayWatcher& operator=(const DisplayWatcher&) = delete;

    [[nodiscard]] DisplayPlaces& places() { return places_; }
    /// Where the places are in doubt, asks the server and waits for it.
    void update();

private:
    Connection& connection_;
    RandrLayout layout_;
    DisplayPlaces places_;
    std::vector<Subscription> subscriptions_;
};

} // namespace nimbrale::x11
