#pragma once

#include "platform/observers.h"
#include "platform/x11/server/error_log.h"

#include <array>
#include <functional>
#include <initializer_list>
#include <memory>
#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// What a handler gets of the events that another client made up and sent, which the server marks.
enum class SentEvents {
    ignored,  ///< what the server itself reports is the truth, and anybody can send anything
    delivered ///< for the conventions between clients that work by sent events (ClientMessage, SelectionNotify)
};

/// Brings a connection's events to those who asked for their type, and its errors to the log. Belongs to one thread.
class EventRoutes {
public:
    using Handler = std::function<void(const xcb_generic_event_t& event)>;

    /// `handler` is called with each event of these types until the returned subscription goes. Handlers of one type
    /// are called in the order in which they were added; they may add and remove handlers.
    [[nodiscard]] Subscription add(std::initializer_list<int> types, Handler handler,
                                   SentEvents sent = SentEvents::ignored);
    void deliver(const xcb_generic_event_t& event);

private:
    struct Route {
        Handler handler;
        SentEvents sent;
    };

    static constexpr std::size_t typeCount = 128;

    std::array<std::vector<std::weak_ptr<Route>>, typeCount> routes_;
    ErrorLog errors_;
};

} // namespace nimbrale::x11
