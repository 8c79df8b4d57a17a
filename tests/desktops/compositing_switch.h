#pragma once

#include "tests/support/desktop_recipe.h"
#include "tests/support/private_desktop.h"

#include <string>

namespace nimbrale::test {

/// KWin gives up the selection five seconds after it has stopped.
inline constexpr Milliseconds compositingPatience{15000};

/// Has XFCE, MATE or Plasma switch its compositing manager on or off, as its settings do; it does so later. The shells'
/// cannot be switched.
inline void setCompositing(DesktopKind kind, PrivateDesktop& desktop, bool isOn)
{
    const std::string value = isOn ? "true" : "false";
    if (kind == DesktopKind::xfce)
        desktop.run("xfconf-query", {"-c", "xfwm4", "-p", "/general/use_compositing", "-n", "-t", "bool", "-s", value});
    else if (kind == DesktopKind::mate)
        desktop.run("gsettings", {"set", "org.mate.Marco.general", "compositing-manager", value});
    else
        desktop.run("dbus-send", {"--session", "--print-reply", "--dest=org.kde.KWin", "/Compositor",
                                  std::string("org.kde.kwin.Compositing.") + (isOn ? "resume" : "suspend")});
}

} // namespace nimbrale::test
