#pragma once

#include "platform/x11/server/connection.h"
#include "platform/x11/surfaces/x11_surface.h"

#include <cstdint>
#include <map>
#include <xcb/sync.h>

namespace nimbrale::x11 {

/// The waits of one connection for moments on others. The server waits, and this process does not. Thread of the
/// connection only.
class SyncWaits {
public:
    /// `connection` must outlive it.
    explicit SyncWaits(Connection& connection) : connection_(connection) {}

    /// What is sent from now on is done after that moment.
    void await(const SyncPoint& moment);

private:
    Connection& connection_;
    /// The highest value that this connection has waited for.
    std::map<xcb_sync_counter_t, std::int64_t> awaited_;
};

} // namespace nimbrale::x11
