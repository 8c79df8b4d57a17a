#pragma once

#include "platform/geometry.h"
#include "platform/screens.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace nimbrale {

/// No region is narrower or lower than this after clamping, in points.
inline constexpr double smallestRegionSide = 50;

/// Which kind of drag of the frame is under way.
enum class DragZone {
    move,  ///< the handle on top of the frame: the region keeps its size
    resize ///< the button at the bottom-right corner: the region's top-left corner stays
};

/// Whether a region outside its display is pushed back whole or cut at the display's edges.
enum class PreserveSize { yes, no };

/// A region as the settings hold it, in whole points. `top` counts from one point below the menu bar, so that a region
/// that starts there is stored as 0.
struct StoredRegion {
    std::int64_t left = 0;
    std::int64_t top = 0;
    std::int64_t width = 0;
    std::int64_t height = 0;

    bool operator==(const StoredRegion&) const = default;
};

/// The measurements of the display that holds the frame, and the coordinate rules that follow from them. All functions
/// are pure and may be called on any thread.
struct DisplayGeometry {
    /// Whole points. Regions lie within it, so that all their sides are whole and survive the settings; of a display
    /// that is a fraction wider or higher, the fraction is out of their reach.
    Size size;
    /// Screen coordinates.
    Rect screenFrame;
    /// Points; one less than what the menu bar covers (the stored `top` adds it back), 0 on a display without one.
    double menuBarHeight = 0;

    bool operator==(const DisplayGeometry&) const = default;

    /// Of a display of that size in points, of which a fraction of a point is dropped, that shows on `screen`. A
    /// capture may report another size than the screen.
    [[nodiscard]] static DisplayGeometry of(const Screen& screen, Size size);
    /// Of a display as large as its screen.
    [[nodiscard]] static DisplayGeometry of(const Screen& screen) { return of(screen, screen.frame.size()); }

    /// Region coordinates to screen coordinates.
    [[nodiscard]] Rect screenRect(const Rect& region) const;
    /// Screen coordinates to region coordinates.
    [[nodiscard]] Rect region(const Rect& screenRect) const;
    /// The screen rectangle of a guide at `x` in region coordinates: as high as the display, without width.
    [[nodiscard]] Rect verticalGuideRect(double x) const;
    /// The screen rectangle of a guide at `y` in region coordinates: as wide as the display, without height.
    [[nodiscard]] Rect horizontalGuideRect(double y) const;

    /// The nearest allowed region, in whole points: inside the display, no side
    /// under `smallestRegionSide`. With `PreserveSize::no` the region is first cut at the display's edges. Region
    /// coordinates in and out.
    [[nodiscard]] Rect clamp(const Rect& region, PreserveSize preserveSize) const;
    /// The part of the display that regions snap to, everything below the menu bar. Region coordinates.
    [[nodiscard]] Rect snapArea() const;

    /// The stored region, clamped to this display with its size preserved. Region coordinates.
    [[nodiscard]] Rect regionFromStored(const StoredRegion& stored) const;
    /// The form of `region` for the settings, every value truncated toward zero. A value that is not finite or does
    /// not fit is a programming error and ends the program.
    [[nodiscard]] StoredRegion storedFromRegion(const Rect& region) const;
};

/// Whether the pointer at `location` is in `rect`, both in a space whose y grows upward. The pointer's location is the
/// top-left corner of the pixel it is on: the top and left edges belong to the rectangle, the others to its neighbors.
[[nodiscard]] bool pointerIsIn(const Rect& rect, Point location);

/// `menuBarHeight` of a display that shows on `screen`: what panels and menu bars cover at the top, less one point.
[[nodiscard]] double menuBarHeightOf(const Screen& screen);

/// The first screen, in the system's order, whose frame holds the pointer.
/// `leftOut` is passed over: the application's own virtual display can never hold the frame. Main thread only.
[[nodiscard]] std::optional<Screen> displayUnderMouse(const Screens& screens,
                                                      std::optional<DisplayID> leftOut = std::nullopt);

/// `value` truncated toward zero. One that is not finite or does not fit is a programming error and ends the program.
[[nodiscard]] std::int64_t truncatedToInteger(double value);

} // namespace nimbrale
