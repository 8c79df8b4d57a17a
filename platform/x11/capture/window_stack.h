#pragma once

#include "platform/x11/capture/captured_window.h"
#include "platform/x11/capture/window_classifier.h"
#include "platform/x11/capture/window_describer.h"
#include "platform/x11/capture/window_order.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_routes.h"
#include "platform/x11/server/painted_regions.h"

#include <chrono>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <vector>
#include <xcb/shape.h>

namespace nimbrale::x11 {

/// The windows of the desktop, bottom to top, each with the pixmap that the server keeps of it. Once made, every window
/// is redirected automatically: the server goes on showing it, and its pixels can be read even where others cover it.
/// But for windows far larger than any screen, of which there is only what the screen shows: the server would take
/// gigabytes for each. Nothing is asked about a window that is not mapped. Thread of its connection only.
class WindowStack {
public:
    using Clock = std::chrono::steady_clock;

    /// Redirects and lists the windows there are. To be made before the first own window maps: what own windows cover
    /// earlier is missing in the pixmaps of the windows below. `connection` must outlive it; `painted` is what this
    /// process tells of its translucent windows.
    WindowStack(Connection& connection, std::shared_ptr<PaintedRegions> painted);
    WindowStack(const WindowStack&) = delete;
    WindowStack& operator=(const WindowStack&) = delete;

    /// Where `window` is something else shows now. Called while events are handled: before a change of place or shape
    /// and after it.
    std::function<void(const CapturedWindow& window, WindowChange change)> onChange;

    /// The window manager hides a window that stays mapped, or shows it again. Called like `onChange`, after that.
    std::function<void(const CapturedWindow& window)> onHiding;

    /// Asks for the events that it follows the windows by.
    void registerHandlers(EventRoutes& events);
    /// Finds out what the windows are like that came since, and whose they are. To be called before composing.
    void classifyNew();

    /// Tells of the windows that have had the time to paint themselves.
    void ageWindows(Clock::time_point now);
    /// When there may be one; absent for never.
    [[nodiscard]] std::optional<Clock::time_point> nextAging() const;
    /// Takes over what this process has told since of what it paints.
    void takePainted();
    /// The compositing manager has got that far. Ends moves that are over by `now`, too.
    void releaseTrails(Clock::time_point now, const HeldPlaces::Progress& progress);

    /// A compositing manager came or went. While one runs, own windows stay redirected like all others: it keeps their
    /// pixels anyway, and the server forgets to end its redirection when a window that one of two clients unredirected
    /// is given another parent, after which nobody shows that window.
    void setCompositing(Compositing compositing);

    /// The mapped windows, bottom to top.
    [[nodiscard]] const WindowList& windows() { return order_.mapped(); }
    /// Those that are not mapped, too. Of a window that never was, nothing but its place is known.
    [[nodiscard]] const std::list<CapturedWindow>& allWindows() { return order_.all(); }
    /// Null for a window that is not listed.
    [[nodiscard]] CapturedWindow* find(xcb_window_t id) { return order_.find(id); }
    /// A window of this process that is no window of the application, such as one that stands for the root background.
    void addExempt(xcb_window_t window) { exempt_ = window; }

private:
    /// Null for the composite overlay: the whole screen, ours included.
    CapturedWindow* add(xcb_window_t id);
    void addExisting(const std::vector<xcb_window_t>& ids);
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
    void resized(CapturedWindow& window);
    void describeNew();
    void readChangedShapes();
    /// The mapped windows for which `test` holds.
    template <typename Test>
    [[nodiscard]] std::vector<CapturedWindow*> mappedWhere(Test test);
    void watchDamage(CapturedWindow& window);
    /// The mapped window that is this one or has it as its client; null where there is none.
    [[nodiscard]] CapturedWindow* findManaged(xcb_window_t id);
    void askAgain(CapturedWindow& window);
    /// A client may have another place in its frame.
    void clientConfigured(xcb_window_t client);
    void classified(CapturedWindow& window);
    void listenToClient(CapturedWindow& window);
    void readCurrentWorkspace();
    void updateHidden();
    void tellOfHiding(const CapturedWindow& window) const;
    void takePainted(CapturedWindow& window);
    void namePixmap(CapturedWindow& window);
    void releasePixmap(CapturedWindow& window);
    /// Own windows are in no picture, so the server need not keep a second copy of theirs; and of windows that are too
    /// large it must not.
    void unredirect(CapturedWindow& window);
    void redirect(CapturedWindow& window);
    /// For a window that was too large.
    void redirectIfSmallEnough(CapturedWindow& window);
    /// For so long all windows that are not known to have painted themselves are taken not to have, the ones that
    /// come meanwhile as well; a time before that is made shorter, too.
    void startHandOver(std::chrono::milliseconds time);
    /// When a window whose memory the server has filled now is taken to have painted it.
    [[nodiscard]] Clock::time_point endOfYouth(Clock::time_point now) const;
    /// The server has taken other memory for it.
    void filled(CapturedWindow& window);
    void changed(const CapturedWindow& window, WindowChange change = WindowChange::altered);

    Connection& connection_;
    std::shared_ptr<PaintedRegions> painted_;
    WindowDescriber describer_;
    WindowClassifier classifier_;
    WindowOrder order_;
    xcb_window_t exempt_ = XCB_NONE;
    bool hasUnclassified_ = false;
    bool hasChangedShapes_ = false;
    Compositing compositing_ = Compositing::absent;
    xcb_atom_t processAtom_;
    xcb_atom_t typeAtom_;
    xcb_atom_t opacityAtom_;
    xcb_atom_t managedAtom_;
    xcb_atom_t stateAtom_;
    xcb_atom_t workspaceAtom_;
    xcb_atom_t currentWorkspaceAtom_;
    std::optional<std::uint32_t> currentWorkspace_;
    std::uint64_t paintedVersion_ = 0;
    struct YoungWindow {
        xcb_window_t id;
        Clock::time_point until;
    };
    /// In the order in which they became young, each as often as it did.
    std::deque<YoungWindow> young_;
    Clock::time_point handOverEnd_;
    std::vector<Subscription> subscriptions_;
};

} // namespace nimbrale::x11
