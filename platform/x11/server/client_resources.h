#pragma once

#include "platform/x11/server/connection.h"

#include <vector>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

/// What a client of the X server has there, by X-Resource.
struct ClientResources {
    /// The names of the types of which it has any.
    std::vector<xcb_atom_t> types;

    [[nodiscard]] bool has(xcb_atom_t type) const;
};

/// Of all clients, in two round trips. Empty where the server cannot tell. Thread of the connection only.
[[nodiscard]] std::vector<ClientResources> resourcesOfClients(Connection& connection);

} // namespace nimbrale::x11
