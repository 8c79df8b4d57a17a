#pragma once

#include "platform/main_queue.h"
#include "platform/pixel_rect.h"
#include "platform/result.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"

#include <functional>
#include <memory>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// The part of the X screen that the virtual display covers, and the windows that are shown there.
///
/// Some compositing managers leave out what lies on no real display. Their windows' own target, the composite overlay
/// window, can be drawn into beside them, so where a probe shows that windows of the root do not arrive on the screen,
/// the registered ones become children of the overlay window. Its origin is the root's, so a window keeps its
/// coordinates; but it may only be stacked relative to other registered windows. Main thread only.
class VirtualArea {
public:
    /// All three must outlive it.
    VirtualArea(Connection& connection, EventDispatcher& events, MainQueue& mainQueue);
    ~VirtualArea();
    VirtualArea(const VirtualArea&) = delete;
    VirtualArea& operator=(const VirtualArea&) = delete;

    /// From now on `window`, an override-redirect window made as a child of the root, is shown in the area when it is
    /// mapped. It may be given another parent at any time. Windows added later stand in front.
    void add(xcb_window_t window);
    /// Makes it an ordinary child of the root again. Call it before the window is destroyed.
    void remove(xcb_window_t window);

    /// The area is there and has this place, in pixels of the root; an empty rectangle means that there is none. A new
    /// place is probed.
    void setPixels(const PixelRect& pixels);
    [[nodiscard]] const PixelRect& pixels() const;
    /// Whether registered windows are children of the composite overlay window now.
    [[nodiscard]] bool usesOverlay() const;
    /// Whether the last probe has ended and was seen on the screen.
    [[nodiscard]] bool isVerified() const;

    /// Called when windows in the area do not arrive on the screen either way.
    std::function<void(Error)> onUnusable;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace nimbrale::x11
