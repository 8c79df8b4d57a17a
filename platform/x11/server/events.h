#pragma once

#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// The type of an event, without the mark of events that clients sent.
[[nodiscard]] inline int eventType(const xcb_generic_event_t& event)
{
    return event.response_type & 0x7f;
}

/// Whether a client made the event up, instead of the server reporting what happened.
[[nodiscard]] inline bool isSentByClient(const xcb_generic_event_t& event)
{
    return (event.response_type & 0x80) != 0;
}

/// Whether it is the refusal of a request, which xcb queues among the events.
[[nodiscard]] inline bool isError(const xcb_generic_event_t& event)
{
    return event.response_type == 0;
}

/// The event as what its type says it is.
template <typename T>
[[nodiscard]] const T& eventAs(const xcb_generic_event_t& event)
{
    return reinterpret_cast<const T&>(event);
}

} // namespace nimbrale::x11
