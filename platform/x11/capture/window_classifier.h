#pragma once

#include "platform/x11/capture/captured_window.h"
#include "platform/x11/server/connection.h"

#include <optional>
#include <vector>

namespace nimbrale::x11 {

/// Tells whose windows are. A window belongs to this process when the server says that the connection that made it, or
/// one of the windows inside it down to two levels (a window manager's frame around it), does. Thread of its
/// connection only.
class WindowClassifier {
public:
    explicit WindowClassifier(Connection& connection);

    /// Fills in owner and opacity of the given windows, with a fixed number of round trips however many they are.
    /// Windows that vanished meanwhile become nobody's.
    void classify(const std::vector<CapturedWindow*>& windows);

private:
    struct Subject {
        CapturedWindow* window = nullptr;
        xcb_window_t id = XCB_NONE;
        int depth = 0;
    };

    [[nodiscard]] std::vector<Subject> classifyLevel(const std::vector<Subject>& subjects);

    [[nodiscard]] bool isOwnClient(std::optional<ProcessID> client, std::optional<ProcessID> named) const;

    Connection& connection_;
    ProcessID ownProcess_;
    /// This process as the server sees it: another number than `ownProcess_` inside a sandbox; 0 when it cannot tell.
    ProcessID ownProcessAtServer_ = 0;
    xcb_atom_t processAtom_;
    xcb_atom_t typeAtom_;
    xcb_atom_t notificationAtom_;
    xcb_atom_t opacityAtom_;
};

} // namespace nimbrale::x11
