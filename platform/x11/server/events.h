#pragma once

#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// The type of an event, without the mark of events that clients sent.
[[nodiscard]] inline int eventType(const xcb_generic_event_t& event)
{
    return event.response_type & 0x7f;
}

/// The event as what its type says it is.
template <typename T>
[[nodiscard]] const T& eventAs(const xcb_generic_event_t& event)
{
    return reinterpret_cast<const T&>(event);
}

} // namespace nimbrale::x11
