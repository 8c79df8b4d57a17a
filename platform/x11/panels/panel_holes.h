#pragma once

#include "platform/main_queue.h"
#include "platform/observers.h"
#include "platform/x11/server/compositing_watcher.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/server/pixel_region.h"
#include "platform/x11/server/window_events.h"

#include <functional>
#include <memory>
#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Where panels draw nothing, since windows that they are to stay below lie there and the window manager draws panels
/// in front of every window, however the server stacks them. Main thread only.
class PanelHoles {
public:
    /// All must outlive it.
    PanelHoles(Connection& connection, EventDispatcher& events, MainQueue& queue, CompositingWatcher& compositing);
    PanelHoles(const PanelHoles&) = delete;
    PanelHoles& operator=(const PanelHoles&) = delete;

    /// There is a hole where the window is, its frame included, while the user sees it and until the subscription goes,
    /// which may outlive this object; none where the window manager draws in the server's order.
    [[nodiscard]] Subscription makeFor(xcb_window_t window);
    /// Root pixels.
    [[nodiscard]] const PixelRegion& region() const { return region_; }
    /// `observer` is called after the region became another one.
    [[nodiscard]] Subscription observeChanges(std::function<void()> observer)
    {
        return observers_.add(std::move(observer));
    }

private:
    void askManager();
    void scheduleUpdate();
    void update();
    /// Empty for a window that the user does not see.
    [[nodiscard]] PixelRect placeOf(xcb_window_t window);
    /// Minimized, or on another workspace: such windows may stay mapped.
    [[nodiscard]] bool isHidden(xcb_window_t window);

    Connection& connection_;
    MainQueue& queue_;
    bool areNeeded_ = false;
    /// One that was asked for twice is here twice. A window manager may resize a frame first and the window in it
    /// later, so both are listened to.
    std::vector<WindowEvents> windows_;
    PixelRegion region_;
    bool isUpdatePosted_ = false;
    Observers observers_;
    xcb_atom_t frameAtom_;
    xcb_atom_t stateAtom_;
    xcb_atom_t hiddenAtom_;
    xcb_atom_t workspaceAtom_;
    xcb_atom_t currentWorkspaceAtom_;
    WindowEvents rootEvents_;
    Subscription handler_;
    Subscription propertyHandler_;
    Subscription compositingChange_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace nimbrale::x11
