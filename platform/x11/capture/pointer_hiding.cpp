#include "platform/x11/capture/pointer_hiding.h"

#include "platform/x11/server/client_resources.h"

#include <algorithm>
#include <vector>

namespace nimbrale::x11 {

PointerHiding::PointerHiding(Connection& connection) : connection_(connection)
{
    if (connection_.extensions().resources.isPresent)
        recordName_ = connection_.atom("XFixesCursorHideCount");
}

bool PointerHiding::isHidden() const
{
    if (recordName_ == XCB_ATOM_NONE)
        return false;
    const std::vector<ClientResources> clients = resourcesOfClients(connection_);
    return std::any_of(clients.begin(), clients.end(),
                       [this](const ClientResources& client) { return client.has(recordName_); });
}

} // namespace nimbrale::x11
