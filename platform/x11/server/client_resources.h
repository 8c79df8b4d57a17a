#pragma once

#include "platform/x11/server/connection.h"

#include <cstdint>
#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// What a client of the X server has there, by X-Resource.
struct ClientResources {
    /// The names of the types of which it has any.
    std::vector<xcb_atom_t> types;

    [[nodiscard]] bool has(xcb_atom_t type) const;
};

/// Asks the server what its clients have. Thread of the connection only.
class ClientCensus {
public:
    /// `connection` must outlive it.
    explicit ClientCensus(Connection& connection) : connection_(connection) {}

    /// Of all clients: in one round trip where all of them were there the last time, otherwise in two. Empty where the
    /// server cannot tell.
    [[nodiscard]] std::vector<ClientResources> take();

private:
    Connection& connection_;
    /// The first identifier of each client of the last time.
    std::vector<std::uint32_t> clients_;
};

} // namespace nimbrale::x11
