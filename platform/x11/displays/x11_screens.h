#pragma once

#include "platform/pixel_rect.h"
#include "platform/screens.h"
#include "platform/x11/displays/pointer_tracker.h"
#include "platform/x11/displays/screen_space.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale::x11 {

/// A display and where it lies in the X screen.
struct X11Screen {
    Screen screen;
    /// Pixels of the root window, top-left origin.
    PixelRect pixels;
    /// The RandR monitor's name as an atom.
    xcb_atom_t nameAtom = 0;
};

/// The displays of an X server: RandR monitors where there is RandR 1.5, else the whole X screen as one display.
/// Main thread only.
class X11Screens final : public Screens {
public:
    /// Both must outlive it.
    X11Screens(Connection& connection, EventDispatcher& events);
    ~X11Screens() override;

    [[nodiscard]] std::vector<Screen> screens() const override;
    [[nodiscard]] DisplayID mainDisplay() const override;
    [[nodiscard]] Point mouseLocation() const override;
    [[nodiscard]] Subscription observePointer(const Rect& area, std::function<void()> observer) override;
    [[nodiscard]] Subscription observeChanges(std::function<void()> observer) override;

    [[nodiscard]] const std::vector<X11Screen>& all() const { return screens_; }
    [[nodiscard]] std::optional<X11Screen> find(DisplayID displayID) const;
    /// The root pixel nearest to a point in region coordinates of that display; absent when it is not there.
    [[nodiscard]] std::optional<PixelPoint> pixelOf(Point regionPoint, DisplayID displayID) const;
    /// How root pixels and screen points correspond, as long as no observer is told of a change.
    [[nodiscard]] const ScreenSpace& space() const;

    /// The identifier that the monitor of that name has.
    [[nodiscard]] DisplayID displayIDForMonitor(xcb_atom_t nameAtom);
    /// Names the application's own monitor: its screen has scale 1, and it never is the main display. 0 for none.
    void setOwnMonitor(xcb_atom_t nameAtom);
    /// Told of moves by whoever hears of them, and of the events that are dealt with; `mouseLocation` answers by it.
    [[nodiscard]] PointerTracker& pointer();
    /// Reads the displays afresh and tells the observers if they differ. The server announces most changes, but not
    /// those of user-defined monitors: whoever makes one calls this.
    void refresh();

private:
    struct Impl;

    std::unique_ptr<Impl> impl_;
    std::vector<X11Screen> screens_;
};

} // namespace nimbrale::x11
