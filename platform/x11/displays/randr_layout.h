#pragma once

#include "platform/pixel_rect.h"
#include "platform/result.h"
#include "platform/x11/server/connection.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>
#include <xcb/randr.h>

namespace nimbrale::x11 {

/// A RandR 1.5 monitor.
struct RandrMonitor {
    xcb_atom_t name = 0;
    bool isPrimary = false;
    /// Made by the server for a CRTC, not by a program.
    bool isAutomatic = false;
    std::vector<xcb_randr_output_t> outputs;
    PixelRect pixels;
};

/// A display that shows a part of its area and follows the pointer over the rest.
struct RandrPanning {
    xcb_randr_crtc_t crtc = XCB_NONE;
    PixelRect area;
    /// Where the pointer moves the display; empty for everywhere.
    PixelRect tracking;
    /// How near the display's edges that begins: left, top, right, bottom.
    std::array<std::int16_t, 4> borders = {};
};

enum class MonitorScope { active, all };

/// How many millimeters a pixel of the X screen is said to have. Kept when the screen is resized, so that the dots per
/// inch that programs compute from it stay what they were.
struct PixelPitch {
    double horizontal = 25.4 / 96;
    double vertical = 25.4 / 96;
};

/// Reads RandR's layout; `RandrChange` changes it. Needs RandR 1.5. Thread of the connection
/// only.
class RandrLayout {
public:
    explicit RandrLayout(Connection& connection);

    [[nodiscard]] std::vector<RandrMonitor> monitors(MonitorScope scope) const;
    [[nodiscard]] std::optional<RandrMonitor> monitor(xcb_atom_t name) const;
    /// What lit outputs show, their panning areas included.
    [[nodiscard]] std::vector<PixelRect> litAreas() const;
    /// Of displays that have one.
    [[nodiscard]] std::vector<RandrPanning> pannings() const;
    /// What the X screen needs to hold without the monitor `except`: all lit areas and all active monitors of others.
    [[nodiscard]] PixelRect realBounds(xcb_atom_t except) const;
    /// Of the root, which is the X screen. Its origin is (0, 0).
    [[nodiscard]] PixelRect screenPixels() const;

    [[nodiscard]] xcb_randr_output_t primaryOutput() const;
    void setPrimaryOutput(xcb_randr_output_t output);
    /// The output to make primary when none is: one of the display nearest to the top-left corner, 0 without any. The
    /// monitor `except` is not looked at.
    [[nodiscard]] xcb_randr_output_t outputForPrimary(xcb_atom_t except) const;
    /// An output that nothing is plugged into and that no monitor but `except` bears; `preferred` if that is such a
    /// one, 0 without any.
    [[nodiscard]] xcb_randr_output_t idleOutput(xcb_atom_t except, xcb_randr_output_t preferred) const;
    [[nodiscard]] bool hasPrimaryMonitor() const;

    /// The pitch that the server was started with.
    [[nodiscard]] PixelPitch initialPitch() const;

private:
    Connection& connection_;
};

} // namespace nimbrale::x11
