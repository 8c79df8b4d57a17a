#include "platform/x11/surfaces/sync_waits.h"

#include "platform/x11/server/handles.h"

#include <limits>

namespace nimbrale::x11 {

namespace {

xcb_sync_int64_t serverValue(std::int64_t value)
{
    return {static_cast<std::int32_t>(value >> 32), static_cast<std::uint32_t>(value & 0xffffffff)};
}

} // namespace

void SyncWaits::await(const SyncPoint& moment)
{
    if (moment.counter == XCB_NONE)
        return;
    const auto known = awaited_.find(moment.counter);
    if (known != awaited_.end() && known->second >= moment.value)
        return;
    awaited_[moment.counter] = moment.value;
    xcb_sync_waitcondition_t condition{};
    condition.trigger.counter = moment.counter;
    condition.trigger.wait_type = XCB_SYNC_VALUETYPE_ABSOLUTE;
    condition.trigger.wait_value = serverValue(moment.value);
    condition.trigger.test_type = XCB_SYNC_TESTTYPE_POSITIVE_COMPARISON;
    // Nobody wants to hear how late the wait began: a threshold that is never reached keeps the server from telling.
    condition.event_threshold = serverValue(std::numeric_limits<std::int64_t>::max());
    // A counter that is gone has no moments to come.
    mayFail(connection_.get(), xcb_sync_await_checked(connection_.get(), 1, &condition));
}

} // namespace nimbrale::x11
