#pragma once

#include "platform/x11/server/connection.h"

#include <cstdint>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Lets a connection hear of a window that it did not make, for as long as this lives. A connection has one event mask
/// for each window; several of these on one window add up. Move-only.
class WindowEvents {
public:
    WindowEvents() = default;
    /// `events` are xcb event mask bits. A window that is gone is simply not heard of. `connection` must outlive it.
    WindowEvents(Connection& connection, xcb_window_t window, std::uint32_t events);
    ~WindowEvents();
    WindowEvents(WindowEvents&& other) noexcept;
    WindowEvents& operator=(WindowEvents&& other) noexcept;

    /// XCB_NONE when it stands for no window.
    [[nodiscard]] xcb_window_t window() const { return window_; }

private:
    void end();

    Connection* connection_ = nullptr;
    xcb_window_t window_ = XCB_NONE;
    std::uint32_t events_ = 0;
};

} // namespace nimbrale::x11
