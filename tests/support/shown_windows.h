#pragma once

#include "tests/support/private_desktop.h"

#include <QPoint>

#include <xcb/xcb.h>

namespace nimbrale::test {

/// The topmost child of the root that covers a place, in root pixels, and is mapped, clicks let through or not;
/// XCB_WINDOW_NONE when there is none.
[[nodiscard]] xcb_window_t windowAt(const PrivateDesktop& desktop, const QPoint& place);
/// Like `windowAt`, but of the composite overlay window, which lies above the root's children: XCB_WINDOW_NONE where no
/// compositing manager draws into one.
[[nodiscard]] xcb_window_t overlayWindowAt(const PrivateDesktop& desktop, const QPoint& place);

} // namespace nimbrale::test
