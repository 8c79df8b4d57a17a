#pragma once

#include "platform/main_queue.h"
#include "platform/pixel_rect.h"
#include "platform/result.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/virtual_display/area_windows.h"

#include <functional>
#include <memory>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// The part of the X screen that the virtual display covers, and the windows that are shown there, each of which covers
/// it whole. Main thread only.
///
/// Some compositing managers leave out what lies on no real display. Their windows' own target, the composite overlay
/// window, can be drawn into beside them, so where a probe shows that windows of the root do not arrive on the screen,
/// the registered ones become children of the overlay window. Its origin is the root's, so a window keeps its
/// coordinates; but it may only be stacked relative to other registered windows. It is no place for all desktops: some
/// compositing managers draw over its children, or take it off the screen for a while.
///
/// No window that others put in front of the registered ones stays there for longer than it takes to hear of it. Where
/// others insist (`AreaContest`) while a compositing manager draws into the overlay window, and pixels tried there stay
/// on the screen, the registered windows go there for good, out of the reach of all others.
class VirtualArea {
public:
    /// All three must outlive it.
    VirtualArea(Connection& connection, EventDispatcher& events, MainQueue& mainQueue);
    ~VirtualArea();
    VirtualArea(const VirtualArea&) = delete;
    VirtualArea& operator=(const VirtualArea&) = delete;

    /// From now on `window`, an override-redirect window made as a child of the root with its depth, is shown in the
    /// area when it is mapped. It may be given another parent, place, size and background at any time; the background
    /// is black except within `setPixels`. Windows added later stand in front.
    void add(xcb_window_t window, AreaRole role = AreaRole::picture);
    /// From now on `window`, made as for `add`, is shown where `gone` was, before and behind the same windows. `gone`
    /// may have been destroyed; it is not touched.
    void replace(xcb_window_t gone, xcb_window_t window);
    /// Makes it an ordinary child of the root again. Call it before the window is destroyed.
    void remove(xcb_window_t window);

    /// Whether it is registered.
    [[nodiscard]] bool contains(xcb_window_t window) const;

    /// The area is there and has this place, in pixels of the root; an empty rectangle means that there is none.
    /// `changeLayout` sends what brings the display there, without waiting for any answer and without flushing. In the
    /// same moment for all others the registered windows come to cover the new place, the frontmost with the picture
    /// that it has, and black where it has none: at no time is anything else in the area, whatever the server does to
    /// the screen. A new place is probed.
    void setPixels(const PixelRect& pixels, const std::function<void()>& changeLayout);
    /// There is such an area already, which shows what another process left in it: the registered windows come to
    /// cover it, with the picture that is there. To be called while there is no area.
    void takeOver(const PixelRect& pixels);
    /// There is no area any more as far as this process is concerned, and none of its windows: what is there stays as
    /// it is for others to see.
    void leave();
    [[nodiscard]] const PixelRect& pixels() const;
    /// What registered windows are children of now.
    [[nodiscard]] xcb_window_t parent() const;
    /// Whether registered windows are children of the composite overlay window now.
    [[nodiscard]] bool usesOverlay() const;
    /// Whether the last probe has ended and was seen on the screen.
    [[nodiscard]] bool isVerified() const;

    /// Called when a probe was seen on the screen, or a compositing manager has gone. Not within `setPixels`.
    std::function<void()> onVerified;
    /// Called when what is shown in the area is late on the screen: a compositing manager that started while the screen
    /// changed may not know of its size, and hears of it when it is told once more.
    std::function<void()> onLate;
    /// Called when windows in the area do not arrive on the screen either way.
    std::function<void(Error)> onUnusable;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace nimbrale::x11
