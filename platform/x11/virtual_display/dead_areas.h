#pragma once

#include "platform/pixel_rect.h"
#include "platform/x11/server/connection.h"

#include <vector>

namespace nimbrale::x11 {

/// What of an X screen of that size neither the displays nor the virtual display show: it is seen only in pictures of
/// the whole screen. Pixels of the root.
[[nodiscard]] std::vector<PixelRect> deadAreas(const PixelRect& screen, const PixelRect& displays,
                                               const PixelRect& virtualDisplay);

/// Paints them black on the screen itself, over whatever windows: the server hands out a new screen's memory as others
/// left it, and some compositing managers draw only where displays are. Sent without waiting for an answer.
void paintBlack(Connection& connection, const std::vector<PixelRect>& areas);

} // namespace nimbrale::x11
