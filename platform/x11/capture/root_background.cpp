#include "platform/x11/capture/root_background.h"

#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"

#include <algorithm>
#include <xcb/composite.h>

namespace nimbrale::x11 {

RootBackground::RootBackground(Connection& connection, bool isComposited)
    : connection_(connection), wallpaperAtoms_{connection.atom("_XROOTPMAP_ID"), connection.atom("ESETROOT_PMAP_ID")}
{
    // The connection's record of the root's size is from its opening; it may have grown since.
    const Reply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(connection_.get(), xcb_get_geometry(connection_.get(), connection_.root()), nullptr));
    rootWidth_ = geometry ? geometry->width : connection_.screen().width_in_pixels;
    rootHeight_ = geometry ? geometry->height : connection_.screen().height_in_pixels;
    setComposited(isComposited);
}

bool RootBackground::handle(const xcb_generic_event_t& event)
{
    if (eventType(event) == XCB_PROPERTY_NOTIFY) {
        const auto& notify = eventAs<xcb_property_notify_event_t>(event);
        if (standIn_ != XCB_NONE || notify.window != connection_.root() ||
            std::find(std::begin(wallpaperAtoms_), std::end(wallpaperAtoms_), notify.atom) == std::end(wallpaperAtoms_))
            return false;
        readWallpaper();
        return true;
    }
    const Extension& damage = connection_.extensions().damage;
    if (damage_ && eventType(event) == damage.firstEvent + XCB_DAMAGE_NOTIFY) {
        isDamaged_ |= eventAs<xcb_damage_notify_event_t>(event).damage == damage_.get();
        return false;
    }
    if (eventType(event) != XCB_CONFIGURE_NOTIFY)
        return false;
    const auto& notify = eventAs<xcb_configure_notify_event_t>(event);
    if (notify.window != connection_.root())
        return false;
    rootWidth_ = notify.width;
    rootHeight_ = notify.height;
    if (standIn_ != XCB_NONE) {
        const std::uint32_t size[] = {static_cast<std::uint32_t>(rootWidth_), static_cast<std::uint32_t>(rootHeight_)};
        xcb_configure_window(connection_.get(), standIn_, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
    }
    return true;
}

xcb_xfixes_fetch_region_cookie_t RootBackground::fetchDamage(xcb_xfixes_region_t region)
{
    isDamaged_ = false;
    mayFail(connection_.get(), xcb_damage_subtract_checked(connection_.get(), damage_.get(), XCB_NONE, region));
    return xcb_xfixes_fetch_region(connection_.get(), region);
}

void RootBackground::setComposited(bool isComposited)
{
    if (isComposited) {
        dropStandIn();
        readWallpaper();
        return;
    }
    wallpaper_.reset();
    // A server without DAMAGE ends in the redirection of a window.
    const Extensions& extensions = connection_.extensions();
    if (standIn_ == XCB_NONE && extensions.composite.isPresent && extensions.damage.isPresent)
        makeStandIn();
}

void RootBackground::readWallpaper()
{
    wallpaper_.reset();
    for (const xcb_atom_t atom : wallpaperAtoms_) {
        const std::optional<xcb_pixmap_t> pixmap = namedPixmap(atom);
        if (!pixmap)
            continue;
        // The pixmap may vanish in this moment, and then there is no picture either.
        wallpaper_ = {connection_, connection_.newId()};
        const std::uint32_t repeat = XCB_RENDER_REPEAT_NORMAL;
        mayFail(connection_.get(),
                xcb_render_create_picture_checked(connection_.get(), wallpaper_.get(), *pixmap,
                                                  connection_.rootFormat(), XCB_RENDER_CP_REPEAT, &repeat));
        return;
    }
}

std::optional<xcb_pixmap_t> RootBackground::namedPixmap(xcb_atom_t property) const
{
    const auto named = connection_.property32(connection_.root(), property, XCB_ATOM_PIXMAP);
    if (!named)
        return std::nullopt;
    xcb_connection_t* const raw = connection_.get();
    const auto geometryCookie = xcb_get_geometry(raw, *named);
    const auto attributesCookie = xcb_get_window_attributes(raw, *named);
    const Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(raw, geometryCookie, nullptr));
    const Reply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(raw, attributesCookie, nullptr));
    // The property may outlive the pixmap: a program that set a wallpaper and ended took it along. And only a window
    // has attributes: what a program shows in one is nobody's background.
    if (!geometry || attributes || geometry->depth != connection_.screen().root_depth)
        return std::nullopt;
    return named;
}

void RootBackground::makeStandIn()
{
    xcb_connection_t* const raw = connection_.get();
    const std::uint32_t values[] = {XCB_BACK_PIXMAP_PARENT_RELATIVE, 1};
    const std::uint32_t mask = XCB_CW_BACK_PIXMAP | XCB_CW_OVERRIDE_REDIRECT;
    anchor_ = {connection_, connection_.newId()};
    xcb_create_window(raw, XCB_COPY_FROM_PARENT, anchor_.get(), connection_.root(), -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, mask, values);
    standIn_ = connection_.newId();
    // A redirected window is not cut to its parent. One pixel away from it lies the root's corner.
    xcb_create_window(raw, XCB_COPY_FROM_PARENT, standIn_, anchor_.get(), 1, 1, static_cast<std::uint16_t>(rootWidth_),
                      static_cast<std::uint16_t>(rootHeight_), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                      mask, values);
    xcb_composite_redirect_window(raw, standIn_, XCB_COMPOSITE_REDIRECT_MANUAL);
    xcb_map_window(raw, standIn_);
    xcb_map_window(raw, anchor_.get());
    damage_ = {connection_, connection_.newId()};
    xcb_damage_create(raw, damage_.get(), connection_.root(), XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
}

void RootBackground::dropStandIn()
{
    damage_.reset();
    isDamaged_ = false;
    anchor_.reset();
    standIn_ = XCB_NONE;
}

} // namespace nimbrale::x11
