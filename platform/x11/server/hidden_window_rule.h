#pragma once

#include <cstdint>
#include <optional>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Whether a compositing manager runs, without which the server shows translucent windows opaque.
enum class Compositing { absent, running };

/// What the window manager says of the client in a top-level window, as the Extended Window Manager Hints have it.
struct ManagedState {
    /// The top-level itself where it has no frame; XCB_NONE for a window that nobody manages.
    xcb_window_t client = XCB_NONE;
    /// _NET_WM_STATE_HIDDEN.
    bool isHidden = false;
    /// _NET_WM_DESKTOP; absent where the window manager has no workspaces.
    std::optional<std::uint32_t> workspace;
    /// How much of the top-level lies around the client, on each side: a frame, which a compositing manager may draw
    /// without any pixels of the window's.
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;

    bool operator==(const ManagedState&) const = default;
};

/// Of a window that is on every workspace.
constexpr std::uint32_t everyWorkspace = 0xffffffff;

/// Whether the user does not see a window though the server has it mapped: a minimized one, or one of another
/// workspace. Compositing managers keep such windows mapped; without one, what is mapped is shown. A shaded window that
/// is called hidden counts as hidden, too, since nothing tells whether it is minimized as well. `currentWorkspace` is
/// _NET_CURRENT_DESKTOP of the root. Pure.
[[nodiscard]] inline bool isHiddenByManager(const ManagedState& state, std::optional<std::uint32_t> currentWorkspace,
                                            Compositing compositing)
{
    if (compositing == Compositing::absent || state.client == XCB_NONE)
        return false;
    const bool isElsewhere = state.workspace && currentWorkspace && *state.workspace != everyWorkspace &&
                             *state.workspace != *currentWorkspace;
    return state.isHidden || isElsewhere;
}

} // namespace nimbrale::x11
