#pragma once

#include "platform/pixel_rect.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/virtual_display/area_probe.h"
#include "platform/x11/virtual_display/area_windows.h"

namespace nimbrale::x11 {

/// Where a probe of the area tells of what has to be seen there: in the frontmost window that is shown, since a window
/// of the probe's own in front of it would have its place disputed. The windows' parent where none is. Waits for the
/// server.
[[nodiscard]] AreaProbe::Spot spotInFront(Connection& connection, const AreaWindows& windows, const PixelRect& area);

} // namespace nimbrale::x11
