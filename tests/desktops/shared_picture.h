#pragma once

#include "tests/support/private_desktop.h"

#include <QImage>

namespace nimbrale::test {

/// The window that stands in for a virtual display where the desktop has none.
inline constexpr const char* mirrorTitle = "Share this";

/// Where the virtual display is; null where there is none.
[[nodiscard]] inline QRect sharedArea(PrivateDesktop& desktop)
{
    const auto monitor = desktop.monitorNamed("Nimbrale");
    return monitor ? monitor->geometry : QRect();
}

/// What a meeting shows: the virtual display, or else the window in its place; null while there is neither.
[[nodiscard]] inline QImage sharedPicture(PrivateDesktop& desktop)
{
    const QRect area = sharedArea(desktop);
    return area.isNull() ? desktop.windowPicture(mirrorTitle) : desktop.screenshot(area);
}

} // namespace nimbrale::test
