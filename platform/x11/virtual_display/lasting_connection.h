#pragma once

#include "platform/x11/server/connection.h"

#include <memory>
#include <string>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// A connection whose windows stay in the server when it ends, however that happens, until `removeWindows` or
/// `removeLasting`. Main thread only.
class LastingConnection {
public:
    /// Null where the server takes no further connection.
    [[nodiscard]] static std::unique_ptr<LastingConnection> open(const std::string& displayName);
    ~LastingConnection();
    LastingConnection(const LastingConnection&) = delete;
    LastingConnection& operator=(const LastingConnection&) = delete;

    [[nodiscard]] xcb_connection_t* get() const { return connection_; }
    /// Whether the server has cut it off, as at any client's request.
    [[nodiscard]] bool isLost() const { return xcb_connection_has_error(connection_) != 0; }
    /// Says that `window`, which was made through this connection, may be given to the functions below.
    void mark(Connection& connection, xcb_window_t window);
    /// Nothing that was made through this connection outlives it any more.
    void removeWindows();
    /// Waits until the server has done what was sent: other connections may use what was made from then on.
    void synchronize();

private:
    explicit LastingConnection(xcb_connection_t* connection) : connection_(connection) {}

    xcb_connection_t* connection_;
};

/// Puts a marked window of a process that has ended in front of its siblings. Does nothing for any other.
void raiseLasting(Connection& connection, xcb_window_t window);
/// Removes everything that was made through the connection of a marked window. Does nothing for any other window.
void removeLasting(Connection& connection, xcb_window_t window);

} // namespace nimbrale::x11
