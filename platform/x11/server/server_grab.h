#pragma once

#include "platform/x11/server/connection.h"

namespace nimbrale::x11 {

/// Keeps other clients from seeing or doing anything in between, for as long as it lives.
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
