#pragma once

#include "platform/x11/capture/captured_window.h"
#include "platform/x11/server/connection.h"

#include <vector>

namespace nimbrale::x11 {

/// Asks the server what windows are like. All questions are sent before the first answer is read, so that it takes one
/// round trip however many windows there are. Thread of its connection only.
class WindowDescriber {
public:
    /// `connection` must outlive it.
    explicit WindowDescriber(Connection& connection) : connection_(connection) {}

    /// Which of the windows are mapped. A window that has vanished is not.
    [[nodiscard]] std::vector<bool> areMapped(const std::vector<xcb_window_t>& windows) const;
    /// Fills in everything but owner and opacity, place and size only where they are not known yet, and listens to
    /// changes of shape and properties from then on. Returns those that are still there.
    [[nodiscard]] std::vector<CapturedWindow*> describe(const std::vector<CapturedWindow*>& windows) const;
    void readShapes(const std::vector<CapturedWindow*>& windows) const;

private:
    Connection& connection_;
};

} // namespace nimbrale::x11
