#pragma once

#include "platform/geometry.h"
#include "platform/observers.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale {

/// Identifies a display for the length of the desktop session. Never 0; 0 stands for "none" where a value is optional.
using DisplayID = std::uint32_t;

/// The notch of a display whose camera sits in the picture. Widths and inset in points; the housing fills the gap
/// between the two areas, from the screen's top down to `topInset`.
struct CameraHousing {
    double auxiliaryTopLeftWidth = 0;
    double auxiliaryTopRightWidth = 0;
    double topInset = 0;

    bool operator==(const CameraHousing&) const = default;
};

struct Screen {
    DisplayID displayID = 0;
    /// What the system calls the display, for lists that a user sees.
    std::string name;
    /// Screen coordinates.
    Rect frame;
    /// The part of `frame` that panels and menu bars of the desktop leave free. Screen coordinates.
    Rect visibleFrame;
    /// Pixels per point.
    double backingScaleFactor = 1;
    std::optional<CameraHousing> cameraHousing;
    /// Where the application's panels get the pointer, in screen coordinates: some shells keep what happens over their
    /// bars to themselves, whatever lies above them. Absent where that is all of `frame`.
    std::optional<Rect> reachableFrame = {};

    bool operator==(const Screen&) const = default;
};

/// The displays of the desktop and the pointer on them. Main thread only.
class Screens {
public:
    virtual ~Screens() = default;

    /// All displays in the system's order, the application's own virtual display included once it shows.
    [[nodiscard]] virtual std::vector<Screen> screens() const = 0;
    /// The display whose bottom-left corner is the origin of screen coordinates; 0 when there is no display.
    [[nodiscard]] virtual DisplayID mainDisplay() const = 0;
    /// Where the pointer is, in screen coordinates. Where the system tells of moves, it is asked only after one.
    [[nodiscard]] virtual Point mouseLocation() const = 0;
    /// `observer` is called once, when the pointer moves after a `mouseLocation`, so that nobody needs to ask for a
    /// pointer that rests: into `area` (screen coordinates), within it or out of it. Other moves may be told or not.
    /// Null where the system tells of no moves: then keep asking.
    [[nodiscard]] virtual Subscription observePointer(const Rect& area, std::function<void()> observer) = 0;
    /// `observer` is called after displays, their frames, work areas or scales changed.
    [[nodiscard]] virtual Subscription observeChanges(std::function<void()> observer) = 0;
};

/// The screen with that identifier, if it is there.
[[nodiscard]] std::optional<Screen> findScreen(const Screens& screens, DisplayID displayID);

} // namespace nimbrale
