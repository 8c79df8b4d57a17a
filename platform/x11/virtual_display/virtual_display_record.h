#pragma once

#include "platform/x11/displays/randr_layout.h"
#include "platform/x11/server/connection.h"

#include <memory>
#include <optional>
#include <string>

namespace nimbrale::x11 {

/// Marks the process that has a virtual display on an X screen by a selection, which the server takes away when the
/// process ends, however that happens. Main thread only.
class VirtualDisplayClaim {
public:
    /// Null when another holds it.
    [[nodiscard]] static std::unique_ptr<VirtualDisplayClaim> take(Connection& connection);
    [[nodiscard]] static bool isTaken(Connection& connection);
    ~VirtualDisplayClaim();
    VirtualDisplayClaim(const VirtualDisplayClaim&) = delete;
    VirtualDisplayClaim& operator=(const VirtualDisplayClaim&) = delete;

private:
    VirtualDisplayClaim(Connection& connection, xcb_window_t window) : connection_(connection), window_(window) {}

    Connection& connection_;
    xcb_window_t window_;
};

/// What a virtual display changed of the desktop, kept with the root window so that it can be undone by a later process
/// when this one does not come to it.
struct VirtualDisplayRecord {
    xcb_atom_t monitor = XCB_ATOM_NONE;
    xcb_randr_output_t primaryBefore = XCB_NONE;
    /// The output that was made primary; 0 when there was a primary all along.
    xcb_randr_output_t primarySet = XCB_NONE;

    [[nodiscard]] static std::optional<VirtualDisplayRecord> read(Connection& connection);
    void write(Connection& connection) const;
    static void erase(Connection& connection);
};

/// Makes the X screen as big as the displays other than `except` need it.
void shrinkScreen(Connection& connection, const RandrLayout& layout, xcb_atom_t except, const PixelPitch& pitch);
/// Makes primary what was so before, unless something else has been made primary since.
void restorePrimary(RandrLayout& layout, const VirtualDisplayRecord& record);
/// Removes the virtual display of a process that has ended: the recorded one, and one of that name.
void removeLeftovers(Connection& connection, RandrLayout& layout, const std::string& name);

} // namespace nimbrale::x11
