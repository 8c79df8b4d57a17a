#include "platform/x11/displays/xsettings.h"

#include "platform/x11/displays/desktop_settings.h"
#include "platform/x11/server/handles.h"

#include <cstddef>

namespace nimbrale::x11 {

namespace {

constexpr std::uint32_t maximumLength = 1U << 18;

} // namespace

std::map<std::string, std::int32_t> desktopIntegers(Connection& connection)
{
    const xcb_atom_t selection = connection.atom("_XSETTINGS_S" + std::to_string(connection.screenNumber()));
    const Reply<xcb_get_selection_owner_reply_t> owner(
        xcb_get_selection_owner_reply(connection.get(), xcb_get_selection_owner(connection.get(), selection), nullptr));
    if (!owner || owner->owner == XCB_NONE)
        return {};
    const xcb_atom_t property = connection.atom("_XSETTINGS_SETTINGS");
    // The settings manager may end in between, which is the same as none.
    const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection.get(), xcb_get_property(connection.get(), 0, owner->owner, property, property, 0, maximumLength),
        nullptr));
    if (!reply || reply->format != 8)
        return {};
    return integersOf({static_cast<const std::uint8_t*>(xcb_get_property_value(reply.get())),
                       static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))});
}

} // namespace nimbrale::x11
