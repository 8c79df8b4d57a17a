#pragma once

#include "platform/pixel_rect.h"
#include "platform/x11/displays/randr_rules.h"
#include "platform/x11/server/connection.h"

#include <optional>
#include <vector>
#include <xcb/randr.h>

namespace nimbrale::x11 {

enum class MonitorScope { active, all };

/// Reads RandR's layout; `RandrChange` changes it. Needs RandR 1.5. Thread of the connection only.
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
    /// `x11::outputForPrimary` of the active monitors.
    [[nodiscard]] xcb_randr_output_t outputForPrimary(xcb_atom_t except) const;
    /// An output that nothing is plugged into and that no monitor but `except` bears; `preferred` if that is such a
    /// one, XCB_NONE without any.
    [[nodiscard]] xcb_randr_output_t idleOutput(xcb_atom_t except, xcb_randr_output_t preferred) const;
    [[nodiscard]] bool hasPrimaryMonitor() const;

    /// The pitch that the server was started with.
    [[nodiscard]] PixelPitch initialPitch() const;

private:
    Connection& connection_;
};

} // namespace nimbrale::x11
