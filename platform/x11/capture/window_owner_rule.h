#pragma once

#include "platform/x11/capture/captured_window.h"

#include <optional>

namespace nimbrale::x11 {

/// What is known of one window: a top-level, or one inside it.
struct WindowFacts {
    /// The process behind the connection that made it, as the server tells.
    std::optional<ProcessID> client;
    /// The process that the window names itself (_NET_WM_PID).
    std::optional<ProcessID> namedProcess;
    bool isNotification = false;
    bool isDock = false;
    /// A window manager manages it.
    bool isClient = false;
    /// 0 for the top-level itself, 1 for the windows in it, and so on.
    int depth = 0;
};

/// Decides whose a top-level is, from what is known of it and of the windows in it: an own window makes what is around
/// it own, since that is a window manager's frame. But not a panel of the desktop, which takes in the icons of all
/// programs: that is shown as it is, our icon included, which is in no way private. It is told by its type and not by
/// our window's _XEMBED_INFO, which toolkits put on every window of theirs. Pure.
class WindowOwnerRule {
public:
    /// `ownProcessAtServer`: this process as the server sees it, another number than `ownProcess` inside a sandbox;
    /// 0 when the server cannot tell.
    WindowOwnerRule(ProcessID ownProcess, ProcessID ownProcessAtServer)
        : ownProcess_(ownProcess), ownProcessAtServer_(ownProcessAtServer)
    {}

    /// How deep below a top-level windows can tell something about it: a window manager's frame, and a frame in that.
    static constexpr int maximumDepth = 2;

    /// Takes one more window of the top-level into account; the top-level itself comes first.
    void consider(WindowOwner& owner, const WindowFacts& facts) const;

private:
    [[nodiscard]] bool isOwn(const WindowFacts& facts) const;

    ProcessID ownProcess_;
    ProcessID ownProcessAtServer_;
};

} // namespace nimbrale::x11
