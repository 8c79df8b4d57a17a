#pragma once

#include "platform/x11/capture/captured_window.h"
#include "platform/x11/capture/window_owner_rule.h"
#include "platform/x11/server/connection.h"

#include <vector>

namespace nimbrale::x11 {

/// Asks the server whose windows are, and has the rule decide. Thread of its connection only.
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

    Connection& connection_;
    WindowOwnerRule rule_;
    xcb_atom_t processAtom_;
    xcb_atom_t typeAtom_;
    xcb_atom_t notificationAtom_;
    xcb_atom_t opacityAtom_;
};

} // namespace nimbrale::x11
