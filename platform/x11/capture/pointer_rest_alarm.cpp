#include "platform/x11/capture/pointer_rest_alarm.h"

#include "platform/x11/server/handles.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <xcb/xinput.h>

namespace nimbrale::x11 {

namespace {

/// The protocol's 14 bytes come before the name. xcb takes them for 16, as its structure is aligned.
constexpr std::size_t nameOffset = 14;

std::string_view nameOf(const xcb_sync_systemcounter_t& counter)
{
    return {reinterpret_cast<const char*>(&counter) + nameOffset, counter.name_len};
}

xcb_sync_counter_t counterNamed(xcb_connection_t* connection, std::string_view name)
{
    const Reply<xcb_sync_list_system_counters_reply_t> counters(
        xcb_sync_list_system_counters_reply(connection, xcb_sync_list_system_counters(connection), nullptr));
    if (!counters)
        return XCB_NONE;
    for (auto each = xcb_sync_list_system_counters_counters_iterator(counters.get()); each.rem;
         xcb_sync_systemcounter_next(&each)) {
        if (nameOf(*each.data) == name)
            return each.data->counter;
    }
    return XCB_NONE;
}

/// The one whose position the server tells this connection.
std::uint16_t pointerDevice(xcb_connection_t* connection)
{
    // The server's first one, which always has this number, unless somebody chose another for this client.
    constexpr std::uint16_t corePointer = 2;
    const Reply<xcb_input_xi_get_client_pointer_reply_t> chosen(xcb_input_xi_get_client_pointer_reply(
        connection, xcb_input_xi_get_client_pointer(connection, XCB_NONE), nullptr));
    return chosen && chosen->set != 0 ? chosen->deviceid : corePointer;
}

} // namespace

PointerRestAlarm::PointerRestAlarm(Connection& connection) : connection_(connection)
{
    const Extensions& extensions = connection_.extensions();
    if (!extensions.sync.isPresent || !extensions.input.isPresent)
        return;
    xcb_connection_t* const raw = connection_.get();
    counter_ = counterNamed(raw, "DEVICEIDLETIME " + std::to_string(pointerDevice(raw)));
    setWanted(isPresent());
}

void PointerRestAlarm::setWanted(bool isWanted)
{
    if (isWanted == static_cast<bool>(alarm_))
        return;
    if (isWanted)
        create();
    else
        alarm_.reset();
}

void PointerRestAlarm::create()
{
    alarm_ = {connection_, connection_.newId()};
    const std::array<std::uint32_t, 8> values = {counter_,
                                                 XCB_SYNC_VALUETYPE_ABSOLUTE,
                                                 0,
                                                 static_cast<std::uint32_t>(shortestRest.count()),
                                                 XCB_SYNC_TESTTYPE_NEGATIVE_TRANSITION,
                                                 0,
                                                 0,
                                                 1};
    xcb_sync_create_alarm(connection_.get(), alarm_.get(),
                          XCB_SYNC_CA_COUNTER | XCB_SYNC_CA_VALUE_TYPE | XCB_SYNC_CA_VALUE | XCB_SYNC_CA_TEST_TYPE |
                              XCB_SYNC_CA_DELTA | XCB_SYNC_CA_EVENTS,
                          values.data());
}

xcb_sync_query_counter_cookie_t PointerRestAlarm::ask() const
{
    return xcb_sync_query_counter(connection_.get(), counter_);
}

bool PointerRestAlarm::wasSet(xcb_sync_query_counter_cookie_t cookie) const
{
    const Reply<xcb_sync_query_counter_reply_t> answer(
        xcb_sync_query_counter_reply(connection_.get(), cookie, nullptr));
    if (!answer)
        return false;
    const std::int64_t rest = std::int64_t{answer->counter_value.hi} << 32 | std::int64_t{answer->counter_value.lo};
    return rest > shortestRest.count();
}

} // namespace nimbrale::x11
