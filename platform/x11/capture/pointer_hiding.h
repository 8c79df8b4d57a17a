#pragma once

#include "platform/x11/server/client_resources.h"
#include "platform/x11/server/connection.h"

#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// Whether a program hides the pointer from the screen (XFixesHideCursor), as those do that take it away while the
/// keyboard is used. The server announces that by no event and answers no question about it, and still tells the shape
/// that the pointer would have. But it keeps a record for each program that hides the pointer, and counts all its
/// records for whoever asks. Thread of its connection only.
class PointerHiding {
public:
    /// `connection` must outlive it.
    explicit PointerHiding(Connection& connection);

    /// Asks the server, in one round trip, or in two where programs have come since the last time. False where the
    /// server cannot tell.
    [[nodiscard]] bool isHidden();

private:
    ClientCensus census_;
    xcb_atom_t recordName_ = XCB_ATOM_NONE;
};

} // namespace nimbrale::x11
