#include "platform/x11/capture/pointer_hiding.h"

#include <algorithm>
#include <vector>

namespace nimbrale::x11 {

PointerHiding::PointerHiding(Connection& connection) : census_(connection)
{
    if (connection.extensions().resources.isPresent)
        recordName_ = connection.atom("XFixesCursorHideCount");
}

bool PointerHiding::isHidden()
{
    if (recordName_ == XCB_ATOM_NONE)
        return false;
    const std::vector<ClientResources> clients = census_.take();
    return std::any_of(clients.begin(), clients.end(),
                       [this](const ClientResources& client) { return client.has(recordName_); });
}

} // namespace nimbrale::x11
