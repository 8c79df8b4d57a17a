#include "platform/x11/capture/root_background.h"

#include "platform/x11/server/events.h"
#include "platform/x11/server/handles.h"

#include <algorithm>
#include <xcb/shape.h>

namespace nimbrale::x11 {

RootBackground::RootBackground(Connection& connection, bool isComposited)
    : connection_(connection), wallpaperAtoms_{connection.atom("_XROOTPMAP_ID"), connection.atom("ESETROOT_PMAP_ID")},
      isComposited_(isComposited)
{
    // The connection's record of the root's size is from its opening; it may have grown since.
    const Reply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(connection_.get(), xcb_get_geometry(connection_.get(), connection_.root()), nullptr));
    rootWidth_ = geometry ? geometry->width : connection_.screen().width_in_pixels;
    rootHeight_ = geometry ? geometry->height : connection_.screen().height_in_pixels;
    read();
}

RootBackground::~RootBackground()
{
    if (picture_ != XCB_NONE)
        xcb_render_free_picture(connection_.get(), picture_);
    dropStandIn();
}

bool RootBackground::handle(const xcb_generic_event_t& event)
{
    if (eventType(event) == XCB_PROPERTY_NOTIFY) {
        const auto& notify = eventAs<xcb_property_notify_event_t>(event);
        if (notify.window != connection_.root() ||
            std::find(std::begin(wallpaperAtoms_), std::end(wallpaperAtoms_), notify.atom) == std::end(wallpaperAtoms_))
            return false;
        read();
        return true;
    }
    if (eventType(event) == XCB_CIRCULATE_NOTIFY)
        lowerStandIn();
    if (eventType(event) != XCB_CONFIGURE_NOTIFY)
        return false;
    const auto& notify = eventAs<xcb_configure_notify_event_t>(event);
    if (notify.window != connection_.root()) {
        // Whatever goes to the bottom of the stack would vanish behind the stand-in.
        if (notify.above_sibling == XCB_NONE && notify.window != standIn_)
            lowerStandIn();
        return false;
    }
    rootWidth_ = notify.width;
    rootHeight_ = notify.height;
    if (standIn_ != XCB_NONE) {
        const std::uint32_t size[] = {std::uint32_t(rootWidth_), std::uint32_t(rootHeight_)};
        xcb_configure_window(connection_.get(), standIn_, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
    }
    return true;
}

void RootBackground::read()
{
    xcb_connection_t* const raw = connection_.get();
    if (picture_ != XCB_NONE)
        mayFail(raw, xcb_render_free_picture_checked(raw, picture_));
    picture_ = XCB_NONE;
    for (const xcb_atom_t atom : wallpaperAtoms_) {
        const auto pixmap = connection_.property32(connection_.root(), atom, XCB_ATOM_PIXMAP);
        if (!pixmap)
            continue;
        // The property may outlive the pixmap: a program that set a wallpaper and ended took it along.
        const Reply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(raw, xcb_get_geometry(raw, *pixmap), nullptr));
        if (!geometry || geometry->depth != connection_.screen().root_depth)
            continue;
        picture_ = connection_.newId();
        const std::uint32_t repeat = XCB_RENDER_REPEAT_NORMAL;
        mayFail(raw, xcb_render_create_picture_checked(raw, picture_, *pixmap, connection_.rootFormat(),
                                                       XCB_RENDER_CP_REPEAT, &repeat));
        dropStandIn();
        return;
    }
    if (isComposited_)
        dropStandIn();
    else if (standIn_ == XCB_NONE)
        makeStandIn();
}

void RootBackground::setComposited(bool isComposited)
{
    isComposited_ = isComposited;
    read();
}

void RootBackground::makeStandIn()
{
    xcb_connection_t* const raw = connection_.get();
    standIn_ = connection_.newId();
    const std::uint32_t values[] = {XCB_BACK_PIXMAP_PARENT_RELATIVE, 1};
    xcb_create_window(raw, XCB_COPY_FROM_PARENT, standIn_, connection_.root(), 0, 0, std::uint16_t(rootWidth_),
                      std::uint16_t(rootHeight_), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                      XCB_CW_BACK_PIXMAP | XCB_CW_OVERRIDE_REDIRECT, values);
    xcb_shape_rectangles(raw, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, XCB_CLIP_ORDERING_UNSORTED, standIn_, 0, 0, 0,
                         nullptr);
    lowerStandIn();
    xcb_map_window(raw, standIn_);
}

void RootBackground::lowerStandIn()
{
    if (standIn_ == XCB_NONE)
        return;
    const std::uint32_t lowest = XCB_STACK_MODE_BELOW;
    xcb_configure_window(connection_.get(), standIn_, XCB_CONFIG_WINDOW_STACK_MODE, &lowest);
}

void RootBackground::dropStandIn()
{
    if (standIn_ != XCB_NONE)
        xcb_destroy_window(connection_.get(), standIn_);
    standIn_ = XCB_NONE;
}

} // namespace nimbrale::x11
