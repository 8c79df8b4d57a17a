#pragma once

#include "platform/x11/server/connection.h"

namespace nimbrale::x11 {

/// Keeps other clients from seeing or doing anything in between the requests that are sent while it lives. All of them,
/// the grab's beginning and its end reach the server in one piece, so that the server never waits for this process in
/// between, even if that is stopped: wait for no answer while it lives, and send little.
class ServerGrab {
public:
    explicit ServerGrab(Connection& connection);
    ~ServerGrab();
    ServerGrab(const ServerGrab&) = delete;
    ServerGrab& operator=(const ServerGrab&) = delete;

private:
    Connection& connection_;
};

} // namespace nimbrale::x11
