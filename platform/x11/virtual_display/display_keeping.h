#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/virtual_display/virtual_display_record.h"

#include <chrono>

namespace nimbrale::x11 {

/// For how long a display that an application left is kept at most.
inline constexpr std::chrono::minutes longestKeeping{10};

/// Waits while the display of `record`, which nobody has claimed, is to be kept for the programs that read the screen:
/// some viewers end, with everything that their user has in them, when a display that they share goes. It is kept as
/// long as such a program is there, but not for longer than `longest`, and not where it stands in the way of a display
/// that was plugged in, or is off the screen. The pointer is kept out of it meanwhile. Asks the server once a second.
/// False when somebody has claimed it, or the server has gone: it is not to be removed then.
[[nodiscard]] bool keepWhileRead(Connection& connection, const VirtualDisplayRecord& record,
                                 std::chrono::milliseconds longest = longestKeeping);

} // namespace nimbrale::x11
