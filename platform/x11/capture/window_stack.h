#pragma once

#include "platform/x11/capture/captured_window.h"
#include "platform/x11/capture/window_classifier.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_routes.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>
#include <xcb/shape.h>

namespace nimbrale::x11 {

/// The windows of the desktop, bottom to top, each with the pixmap that the server keeps of it. Once made, every window
/// is redirected automatically: the server goes on showing it, and its pixels can be read even where others cover it.
/// Thread of its connection only.
class WindowStack {
public:
    /// Redirects and lists the windows there are. To be made before the first own window maps: what own windows cover
    /// earlier is missing in the pixmaps of the windows below. `connection` must outlive it.
    explicit WindowStack(Connection& connection);
    WindowStack(const WindowStack&) = delete;
    WindowStack& operator=(const WindowStack&) = delete;

    /// Where `window` is something else shows now. Called while events are handled: before a change of place or shape
    /// and after it.
    std::function<void(const CapturedWindow& window)> onChange;

    /// Asks for the events that it follows the windows by.
    void registerHandlers(EventRoutes& events);
    /// Finds out whose the windows are that came since. To be called before composing.
    void classifyNew();

    /// A compositing manager came or went. While one runs, own windows stay redirected like all others: it keeps their
    /// pixels anyway, and the server forgets to end its redirection when a window that one of two clients unredirected
    /// is given another parent, after which nobody shows that window.
    void setCompositing(Compositing compositing);

    /// Bottom to top.
    [[nodiscard]] const WindowList& windows() const { return windows_; }
    /// Null for a window that is not listed.
    [[nodiscard]] CapturedWindow* find(xcb_window_t id) const;
    /// A window of this process that is no window of the application, such as one that stands for the root background.
    void addExempt(xcb_window_t window) { exempt_ = window; }

private:
    [[nodiscard]] std::size_t indexOf(xcb_window_t id) const;
    void add(xcb_window_t id);
    void remove(xcb_window_t id);
    template <typename Event>
    void subscribe(EventRoutes& events, int type, void (WindowStack::*handler)(const Event&));
    void handleCreate(const xcb_create_notify_event_t& event);
    void handleDestroy(const xcb_destroy_notify_event_t& event);
    void handleMap(const xcb_map_notify_event_t& event);
    void handleUnmap(const xcb_unmap_notify_event_t& event);
    void mapped(CapturedWindow& window);
    void unmapped(CapturedWindow& window);
    void handleConfigure(const xcb_configure_notify_event_t& event);
    void handleCirculate(const xcb_circulate_notify_event_t& event);
    void handleReparent(const xcb_reparent_notify_event_t& event);
    void handleProperty(const xcb_property_notify_event_t& event);
    void handleShape(const xcb_shape_notify_event_t& event);
    void placeAbove(std::size_t index, xcb_window_t sibling);
    void readShape(CapturedWindow& window);
    /// The window that is this one or has it as its client; null where there is none.
    [[nodiscard]] CapturedWindow* findManaged(xcb_window_t id) const;
    void askAgain(CapturedWindow& window);
    void classified(CapturedWindow& window);
    void listenToClient(CapturedWindow& window);
    void readCurrentWorkspace();
    void updateHidden();
    void namePixmap(CapturedWindow& window);
    void releasePixmap(CapturedWindow& window);
    /// Own windows are in no picture, so the server need not keep a second copy of theirs.
    void unredirectOwn(CapturedWindow& window);
    void changed(const CapturedWindow& window);

    Connection& connection_;
    WindowClassifier classifier_;
    WindowList windows_;
    xcb_window_t exempt_ = XCB_NONE;
    bool hasUnclassified_ = false;
    Compositing compositing_ = Compositing::absent;
    xcb_atom_t processAtom_;
    xcb_atom_t typeAtom_;
    xcb_atom_t opacityAtom_;
    xcb_atom_t managedAtom_;
    xcb_atom_t stateAtom_;
    xcb_atom_t workspaceAtom_;
    xcb_atom_t currentWorkspaceAtom_;
    std::optional<std::uint32_t> currentWorkspace_;
    std::vector<Subscription> subscriptions_;
};

} // namespace nimbrale::x11
