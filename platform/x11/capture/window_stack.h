#pragma once

#include "platform/x11/capture/captured_window.h"
#include "platform/x11/capture/window_classifier.h"
#include "platform/x11/server/connection.h"

#include <functional>
#include <memory>
#include <vector>

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

    /// `region` (root pixels) shows something else now: called while events are handled.
    std::function<void(const PixelRegion& region, const CapturedWindow& window)> onChange;

    /// Takes in what an event says of windows. Events of other kinds are ignored.
    void handle(const xcb_generic_event_t& event);
    /// Finds out whose the windows are that came since. To be called before composing.
    void classifyNew();

    /// A compositing manager came or went. While one runs, own windows stay redirected like all others: it keeps their
    /// pixels anyway, and the server forgets to end its redirection when a window that one of two clients unredirected
    /// is given another parent, after which nobody shows that window.
    void setComposited(bool isComposited);

    /// Bottom to top.
    [[nodiscard]] const std::vector<std::unique_ptr<CapturedWindow>>& windows() const { return windows_; }
    /// RENDER's format of the window's pixmap; 0 when it cannot be drawn.
    [[nodiscard]] xcb_render_pictformat_t formatOf(const CapturedWindow& window) const;
    /// A window of this process that is no window of the application, such as one that stands for the root background.
    void addExempt(xcb_window_t window) { exempt_ = window; }

private:
    [[nodiscard]] CapturedWindow* find(xcb_window_t id) const;
    [[nodiscard]] std::size_t indexOf(xcb_window_t id) const;
    void add(xcb_window_t id);
    void remove(xcb_window_t id);
    void mapped(CapturedWindow& window);
    void unmapped(CapturedWindow& window);
    void configured(const xcb_configure_notify_event_t& event);
    void circulated(const xcb_circulate_notify_event_t& event);
    void reparented(const xcb_reparent_notify_event_t& event);
    void propertyChanged(const xcb_property_notify_event_t& event);
    void shapeChanged(xcb_window_t id);
    void placeAbove(std::size_t index, xcb_window_t sibling);
    void readShape(CapturedWindow& window);
    void namePixmap(CapturedWindow& window);
    void releasePixmap(CapturedWindow& window);
    /// Own windows are in no picture, so the server need not keep a second copy of theirs.
    void unredirectOwn(CapturedWindow& window);
    void changed(const CapturedWindow& window);

    Connection& connection_;
    WindowClassifier classifier_;
    std::vector<std::unique_ptr<CapturedWindow>> windows_;
    xcb_window_t exempt_ = XCB_NONE;
    bool hasUnclassified_ = false;
    bool isComposited_ = false;
    xcb_atom_t processAtom_;
    xcb_atom_t typeAtom_;
    xcb_atom_t opacityAtom_;
};

} // namespace nimbrale::x11
