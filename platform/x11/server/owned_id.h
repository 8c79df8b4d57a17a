#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/server/handles.h"

#include <cstdint>
#include <utility>
#include <xcb/damage.h>
#include <xcb/render.h>
#include <xcb/sync.h>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

namespace nimbrale::x11 {

/// Owner of something in the server, typed by the request that gives it back.
template <auto giveBack>
class OwnedId {
public:
    OwnedId() = default;
    /// `connection` must outlive it. The request that makes the thing may come later.
    OwnedId(const Connection& connection, std::uint32_t id) : connection_(connection.get()), id_(id) {}
    ~OwnedId() { reset(); }
    OwnedId(OwnedId&& other) noexcept : connection_(other.connection_), id_(std::exchange(other.id_, XCB_NONE)) {}
    OwnedId& operator=(OwnedId&& other) noexcept
    {
        if (this != &other) {
            reset();
            connection_ = other.connection_;
            id_ = std::exchange(other.id_, XCB_NONE);
        }
        return *this;
    }

    /// XCB_NONE when it owns nothing.
    [[nodiscard]] std::uint32_t get() const { return id_; }
    explicit operator bool() const { return id_ != XCB_NONE; }
    /// Gives it back now.
    void reset()
    {
        if (id_ != XCB_NONE)
            giveBack(connection_, std::exchange(id_, XCB_NONE));
    }
    /// It is the caller's to give back from now on.
    [[nodiscard]] std::uint32_t release() { return std::exchange(id_, XCB_NONE); }

private:
    xcb_connection_t* connection_ = nullptr;
    std::uint32_t id_ = XCB_NONE;
};

namespace give_back {

// A window can be destroyed by any client, and takes along the pictures and damages that were made of it.
inline void window(xcb_connection_t* connection, xcb_window_t id)
{
    mayFail(connection, xcb_destroy_window_checked(connection, id));
}
inline void windowPicture(xcb_connection_t* connection, xcb_render_picture_t id)
{
    mayFail(connection, xcb_render_free_picture_checked(connection, id));
}
inline void windowDamage(xcb_connection_t* connection, xcb_damage_damage_t id)
{
    mayFail(connection, xcb_damage_destroy_checked(connection, id));
}

} // namespace give_back

/// With everything in it.
using OwnedWindow = OwnedId<give_back::window>;
/// Of a window, whoever made that.
using OwnedWindowPicture = OwnedId<give_back::windowPicture>;
using OwnedWindowDamage = OwnedId<give_back::windowDamage>;
using OwnedPixmap = OwnedId<xcb_free_pixmap>;
/// Of a pixmap or of a source such as a color.
using OwnedPicture = OwnedId<xcb_render_free_picture>;
using OwnedGraphicsContext = OwnedId<xcb_free_gc>;
using OwnedRegion = OwnedId<xcb_xfixes_destroy_region>;
using OwnedCursor = OwnedId<xcb_free_cursor>;
using OwnedColormap = OwnedId<xcb_free_colormap>;
using OwnedAlarm = OwnedId<xcb_sync_destroy_alarm>;
using OwnedFence = OwnedId<xcb_sync_destroy_fence>;

} // namespace nimbrale::x11
