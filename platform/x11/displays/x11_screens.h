#pragma once

#include "platform/pixel_rect.h"
#include "platform/screens.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale::x11 {

/// A display with its place in the X screen.
struct X11Screen {
    Screen screen;
    /// Pixels of the root window, top-left origin.
    PixelRect pixels;
    /// The RandR monitor's name as an atom.
    xcb_atom_t nameAtom = 0;
};

/// The displays of an X server: RandR monitors where there is RandR 1.5, else the whole X screen as one display.
/// Here, and nowhere else, root pixels (top-left origin) and screen points (bottom-left origin) are converted.
/// Main thread only.
class X11Screens final : public Screens {
public:
    /// Both must outlive it.
    X11Screens(Connection& connection, EventDispatcher& events);
    ~X11Screens() override;

    [[nodiscard]] std::vector<Screen> screens() const override;
    [[nodiscard]] DisplayID mainDisplay() const override;
    [[nodiscard]] Point mouseLocation() const override;
    [[nodiscard]] Subscription observeMouse(std::function<void()> observer) override;
    [[nodiscard]] Subscription observeChanges(std::function<void()> observer) override;

    [[nodiscard]] const std::vector<X11Screen>& all() const { return screens_; }
    [[nodiscard]] std::optional<X11Screen> find(DisplayID displayID) const;
    /// The root pixels of a rectangle in screen coordinates, by the scale and place of the screen that holds most of
    /// it (the main one when none does); edges are rounded to the nearest pixel.
    [[nodiscard]] PixelRect pixelsOf(const Rect& screenRect) const;
    /// Pixels per point for that rectangle.
    [[nodiscard]] double scaleAt(const Rect& screenRect) const;
    /// The screen point of a root pixel's top-left corner.
    [[nodiscard]] Point pointOf(int rootX, int rootY) const;

    /// The identifier that the monitor of that name has.
    [[nodiscard]] DisplayID displayIDForMonitor(xcb_atom_t nameAtom);
    /// Names the application's own monitor: its screen has scale 1, and it never is the main display. 0 for none.
    void setOwnMonitor(xcb_atom_t nameAtom);
    /// Says that the pointer may have moved. From the first call on, the pointer is taken to rest between calls, though
    /// for no longer than a fifth of a second, since programs can set its place without anybody being told; so long
    /// `mouseLocation` need not ask the server. Any thread.
    void pointerMoved();
    /// While the answer is kept, `mouseLocation` is that root pixel: what a mouse event brings about is decided by
    /// where it happened, though the pointer may have gone on. Main thread; this object must outlive the answer.
    [[nodiscard]] std::shared_ptr<void> holdMouseAt(int rootX, int rootY);
    /// Reads the displays afresh and tells the observers if they differ. The server announces most changes, but not
    /// those of user-defined monitors: whoever makes one calls this.
    void refresh();

private:
    struct Impl;
    [[nodiscard]] const X11Screen* screenHolding(const Rect& screenRect) const;

    std::unique_ptr<Impl> impl_;
    std::vector<X11Screen> screens_;
};

} // namespace nimbrale::x11
