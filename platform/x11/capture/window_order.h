#pragma once

#include "platform/x11/capture/captured_window.h"

#include <list>
#include <unordered_map>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// The children of the root from bottom to top, and which of them are mapped. A desktop has tens of thousands of
/// windows that are never shown, so that nothing here looks through all of them each time. Pure: needs no server.
class WindowOrder {
public:
    /// Null for a window that is not listed.
    [[nodiscard]] CapturedWindow* find(xcb_window_t id);
    /// What `find` gives for the window below; XCB_NONE for the lowest one. The window must be listed.
    [[nodiscard]] xcb_window_t below(xcb_window_t id) const;

    /// A new window on top of all. It must not be listed yet.
    CapturedWindow& add(xcb_window_t id);
    void remove(xcb_window_t id);
    /// Puts a window that is listed directly above `sibling`: at the bottom for XCB_NONE, on top for a window that is
    /// not listed.
    void placeAbove(xcb_window_t id, xcb_window_t sibling);
    void placeOnTop(xcb_window_t id);
    void setMapped(CapturedWindow& window, bool isMapped);

    [[nodiscard]] std::list<CapturedWindow>& all() { return windows_; }
    /// The mapped ones.
    [[nodiscard]] const WindowList& mapped() const { return mapped_; }

private:
    using Windows = std::list<CapturedWindow>;

    void place(Windows::iterator window, Windows::iterator before);
    /// Gives a window the rank of its place.
    void rank(Windows::iterator window);
    void rankAll();
    void listMapped(CapturedWindow& window);
    void unlistMapped(const CapturedWindow& window);

    Windows windows_;
    std::unordered_map<xcb_window_t, Windows::iterator> places_;
    /// By rank.
    WindowList mapped_;
};

} // namespace nimbrale::x11
