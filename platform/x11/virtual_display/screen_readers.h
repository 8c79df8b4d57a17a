#pragma once

#include "platform/x11/server/connection.h"

namespace nimbrale::x11 {

/// Whether a program shares the screen now (`readsScreen`), which the application itself never does in that way. False
/// where the server cannot tell. Waits for the server. Main thread only.
[[nodiscard]] bool isScreenRead(Connection& connection);

} // namespace nimbrale::x11
