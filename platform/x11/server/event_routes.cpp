#include "platform/x11/server/event_routes.h"

#include "platform/x11/server/events.h"

#include <algorithm>
#include <utility>

namespace nimbrale::x11 {

Subscription EventRoutes::add(std::initializer_list<int> types, Handler handler, SentEvents sent)
{
    const auto route = std::make_shared<Route>(std::move(handler), sent);
    for (const int type : types)
        routes_.at(static_cast<std::size_t>(type)).emplace_back(route);
    return route;
}

void EventRoutes::deliver(const xcb_generic_event_t& event)
{
    if (isError(event)) {
        errors_.report(eventAs<xcb_generic_error_t>(event));
        return;
    }
    auto& routes = routes_.at(static_cast<std::size_t>(eventType(event)));
    std::erase_if(routes, [](const auto& route) { return route.expired(); });
    const auto current = routes;
    for (const auto& route : current) {
        const auto alive = route.lock();
        if (alive && (alive->sent == SentEvents::delivered || !isSentByClient(event)))
            alive->handler(event);
    }
}

} // namespace nimbrale::x11
