#pragma once

#include "platform/main_queue.h"
#include "platform/pixel_rect.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/correction_limiter.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/server/window_events.h"
#include "platform/x11/virtual_display/area_contest.h"

#include <functional>
#include <memory>
#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// What a window is to the area.
enum class AreaRole {
    picture, ///< covers the area
    /// Covers the area and everything straight above it, which no display shows either: a compositing manager that
    /// learns late of the screen's new size may show the area what it drew there.
    backdrop,
    shade ///< as the backdrop, but always a child of the root: what a compositing manager finds there
};

/// Where a window of that role belongs when the area is there.
[[nodiscard]] PixelRect placeOf(AreaRole role, const PixelRect& area);

/// The windows that are registered with the virtual area, back to front: puts them over it, all but the shades into one
/// parent, and keeps those that are the root's children in front of whatever others put there. Main thread only.
class AreaWindows {
public:
    struct Entry {
        xcb_window_t window = XCB_WINDOW_NONE;
        AreaRole role = AreaRole::picture;
    };

    /// All must outlive it.
    AreaWindows(Connection& connection, EventDispatcher& events, MainQueue& queue);
    AreaWindows(const AreaWindows&) = delete;
    AreaWindows& operator=(const AreaWindows&) = delete;

    /// `window`, a child of the root, belongs in front of those that are here.
    void add(xcb_window_t window, AreaRole role);
    /// It is a child of the root again, if it was here.
    void remove(xcb_window_t window);
    /// `window`, a child of the root, takes the place of one that was here, which is not touched.
    void replace(xcb_window_t gone, xcb_window_t window);
    /// Nothing is here any more; the windows stay as they are.
    void forgetAll();
    /// Back to front.
    [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }
    [[nodiscard]] bool contains(xcb_window_t window) const;
    /// XCB_WINDOW_NONE without any.
    [[nodiscard]] xcb_window_t frontmost() const;

    /// They cover that place from now on, in pixels of the root; an empty one means that there is nothing to cover.
    /// Sent with the next flush.
    void cover(const PixelRect& area);
    /// All but the shades become children of `parent`, whose origin is the root's. Sent with the next flush.
    void moveInto(xcb_window_t parent);
    [[nodiscard]] xcb_window_t parent() const { return parent_; }

    /// Called with each window that others put in front over the area while they contend for it (`AreaContest`).
    std::function<void()> onContested;

private:
    void handle(const xcb_generic_event_t& event);
    void configure(const Entry& entry) const;
    void reparent(const Entry& entry, xcb_window_t parent) const;
    [[nodiscard]] bool isInRoot(const Entry& entry) const;
    [[nodiscard]] bool isMoveOfOurs(const xcb_generic_event_t& event) const;
    [[nodiscard]] bool mayBeCoveredAfter(const xcb_generic_event_t& event) const;
    [[nodiscard]] bool isRaisedOverArea(const xcb_generic_event_t& event) const;
    void raiseSoon();
    void raise();
    void putInOrder() const;
    void stackBelow(const std::vector<Entry>::const_reverse_iterator& front) const;

    Connection& connection_;
    MainQueue& queue_;
    std::vector<Entry> entries_;
    PixelRect area_;
    xcb_window_t parent_;
    AreaContest contest_;
    CorrectionLimiter raises_;
    std::unique_ptr<Timer> raiseTimer_;
    WindowEvents rootEvents_;
    Subscription restackings_;
};

} // namespace nimbrale::x11
