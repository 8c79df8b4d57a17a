#pragma once

#include "platform/x11/capture/captured_window.h"
#include "platform/x11/capture/window_owner_rule.h"
#include "platform/x11/server/connection.h"

#include <optional>
#include <vector>

namespace nimbrale::x11 {

/// Asks the server whose windows are, and has the rule decide. Thread of its connection only.
class WindowClassifier {
public:
    explicit WindowClassifier(Connection& connection);

    /// Fills in owner, opacity and what the window manager says of the given windows, with a fixed number of round
    /// trips however many they are. Windows that vanished meanwhile become nobody's.
    void classify(const std::vector<CapturedWindow*>& windows);

private:
    struct Subject {
        CapturedWindow* window = nullptr;
        xcb_window_t id = XCB_NONE;
        int depth = 0;
        /// Of the window at depth 0, which for a frame is the window manager; only deeper, and where the server tells.
        std::optional<ProcessID> frameProcess = std::nullopt;
    };

    /// The questions about one window, all sent before the first answer is read.
    struct Cookies;

    [[nodiscard]] Cookies ask(const Subject& subject) const;
    void takeManagedState(const Subject& subject, const Cookies& cookies, const WindowFacts& facts) const;
    /// Finds out where in their frames the clients are.
    void placeClients(const std::vector<CapturedWindow*>& windows);
    [[nodiscard]] std::vector<Subject> classifyLevel(const std::vector<Subject>& subjects);

    Connection& connection_;
    WindowOwnerRule rule_;
    xcb_atom_t processAtom_;
    xcb_atom_t typeAtom_;
    xcb_atom_t notificationAtom_;
    xcb_atom_t dockAtom_;
    xcb_atom_t opacityAtom_;
    xcb_atom_t managedAtom_;
    xcb_atom_t stateAtom_;
    xcb_atom_t hiddenAtom_;
    xcb_atom_t workspaceAtom_;
};

} // namespace nimbrale::x11
