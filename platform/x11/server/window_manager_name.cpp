#include "platform/x11/server/window_manager_name.h"

#include "platform/x11/server/handles.h"

namespace nimbrale::x11 {

namespace {

/// One whose panels and banners are no windows. Cinnamon's goes by the name of what it is built on.
bool isShell(const std::string& windowManager)
{
    return windowManager == "GNOME Shell" || windowManager == "Mutter (Muffin)";
}

} // namespace

std::string windowManagerName(Connection& connection)
{
    const auto check =
        connection.property32(connection.root(), connection.atom("_NET_SUPPORTING_WM_CHECK"), XCB_ATOM_WINDOW);
    if (!check)
        return {};
    constexpr std::uint32_t longestName = 64;
    const Reply<xcb_get_property_reply_t> name(
        xcb_get_property_reply(connection.get(),
                               xcb_get_property(connection.get(), 0, *check, connection.atom("_NET_WM_NAME"),
                                                XCB_ATOM_ANY, 0, longestName / 4),
                               nullptr));
    if (!name || name->format != 8)
        return {};
    return {static_cast<const char*>(xcb_get_property_value(name.get())),
            static_cast<std::size_t>(xcb_get_property_value_length(name.get()))};
}

bool keepsClicksOnItsBars(const std::string& windowManager)
{
    return isShell(windowManager);
}

bool drawsNotificationsItself(const std::string& windowManager)
{
    return isShell(windowManager);
}

bool missesDamage(const std::string& windowManager)
{
    return isShell(windowManager) || windowManager == "Mutter";
}

bool showsPicturesBetterInOverlay(const std::string& windowManager)
{
    // KWin and Xfwm4 paint nothing where there is no real display. Marco copies the rectangle around all that it paints
    // at once: the whole screen, where a picture is shared while the display changes. Mutter paints the shared picture
    // a whole frame after the display.
    for (const char* const one : {"KWin", "Xfwm4", "Metacity (Marco)", "Mutter", "GNOME Shell"}) {
        if (windowManager == one)
            return true;
    }
    return false;
}

bool drawsUnmanagedWindowsInFront(const std::string& windowManager)
{
    return isShell(windowManager) || windowManager == "Mutter" || windowManager == "KWin";
}

} // namespace nimbrale::x11
