#pragma once

#include "geometry/display_geometry.h"
#include "platform/geometry.h"

#include <string>
#include <vector>

namespace nimbrale {

/// A line at which a dragged region snapped, in region coordinates.
struct Guide {
    enum class Direction {
        vertical,  ///< `position` is an x at which a left edge, a center or a right edge snapped
        horizontal ///< `position` is a y at which a top edge, a center or a bottom edge snapped
    };

    Direction direction = Direction::vertical;
    double position = 0;

    bool operator==(const Guide&) const = default;

    [[nodiscard]] static Guide vertical(double x) { return {Direction::vertical, x}; }
    [[nodiscard]] static Guide horizontal(double y) { return {Direction::horizontal, y}; }
};

/// Pulls a dragged region onto the edges, halves, thirds and quarters of a display. A pure value, in region
/// coordinates; any thread.
struct RegionSnapper {
    struct Snapped {
        Rect region;
        /// At most one of each direction, the vertical one first.
        std::vector<Guide> guides;
    };

    /// What is snapped to, in region coordinates.
    Rect area;
    /// The smallest size that a resize may snap to.
    Size minimumSize{smallestRegionSide, smallestRegionSide};

    bool operator==(const RegionSnapper&) const = default;

    /// For the part of a display that regions snap to.
    [[nodiscard]] static RegionSnapper of(const DisplayGeometry& geometry) { return {.area = geometry.snapArea()}; }

    /// The region with every edge that comes near enough pulled onto its line. A moved region keeps its size and may
    /// keep fractions of a point; a resized one keeps its top-left corner and gets whole edges, snapped or not.
    [[nodiscard]] Snapped snap(const Rect& region, DragZone zone) const;
    /// The region's size for the user, with the fractions of the area that it makes up: "1280 × 720 · ½ width". UTF-8.
    /// A size that is not finite or does not fit 64-bit integers is a programming error and ends the program.
    [[nodiscard]] std::string label(const Rect& region) const;
};

} // namespace nimbrale
