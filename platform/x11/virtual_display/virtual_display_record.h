#pragma once

#include "platform/x11/displays/randr_layout.h"
#include "platform/x11/server/connection.h"

#include <chrono>
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
    /// As `take`, but waits a second for another to end, in order or by the hand of its caretaker.
    [[nodiscard]] static std::unique_ptr<VirtualDisplayClaim> waitFor(Connection& connection);
    [[nodiscard]] static bool isTaken(Connection& connection);
    [[nodiscard]] static xcb_atom_t selection(Connection& connection);
    ~VirtualDisplayClaim();
    /// The selection's owner.
    [[nodiscard]] xcb_window_t window() const { return window_; }
    VirtualDisplayClaim(const VirtualDisplayClaim&) = delete;
    VirtualDisplayClaim& operator=(const VirtualDisplayClaim&) = delete;

private:
    VirtualDisplayClaim(Connection& connection, xcb_window_t window) : connection_(connection), window_(window) {}

    Connection& connection_;
    xcb_window_t window_;
};

/// For how long the card is shown before the display goes: two pictures of a viewer at 30 a second.
inline constexpr std::chrono::milliseconds lastPictureTime{70};

/// What a virtual display changed of the desktop, kept with the root window so that it can be undone by a later process
/// when this one does not come to it.
struct VirtualDisplayRecord {
    xcb_atom_t monitor = XCB_ATOM_NONE;
    xcb_randr_output_t primaryBefore = XCB_NONE;
    /// The output that was made primary; 0 when there was a primary all along.
    xcb_randr_output_t primarySet = XCB_NONE;
    /// The card, a window that stays when the process ends; XCB_WINDOW_NONE until there is one.
    xcb_window_t card = XCB_WINDOW_NONE;
    /// The card of the process whose display was taken over, until the new one is seen; else XCB_WINDOW_NONE.
    xcb_window_t earlierCard = XCB_WINDOW_NONE;

    [[nodiscard]] static std::optional<VirtualDisplayRecord> read(Connection& connection);
    void write(Connection& connection) const;
    static void erase(Connection& connection);
};

/// Makes the X screen as big as the displays other than `except` need it.
void shrinkScreen(Connection& connection, const RandrLayout& layout, xcb_atom_t except, const PixelPitch& pitch);
/// Makes primary what was so before, unless something else has been made primary since.
void restorePrimary(RandrLayout& layout, const VirtualDisplayRecord& record);
/// The monitor that a process that has ended left: the recorded one, or one of that name.
[[nodiscard]] std::optional<RandrMonitor> findLeftover(Connection& connection, const RandrLayout& layout,
                                                       const std::string& name);
/// Removes the virtual display of a process that has ended: the recorded one, and one of that name.
void removeLeftovers(Connection& connection, RandrLayout& layout, const std::string& name);

} // namespace nimbrale::x11
