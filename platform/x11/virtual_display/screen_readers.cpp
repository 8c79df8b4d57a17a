#include "platform/x11/virtual_display/screen_readers.h"

#include "platform/x11/server/client_resources.h"
#include "platform/x11/virtual_display/screen_reader_rule.h"

#include <algorithm>

namespace nimbrale::x11 {

bool isScreenRead(Connection& connection)
{
    const xcb_atom_t window = connection.atom("WINDOW");
    const xcb_atom_t sharedMemory = connection.atom("ShmSeg");
    const xcb_atom_t damage = connection.atom("DamageExt");
    const xcb_atom_t pointerImage = connection.atom("XFixesCursorClient");
    const auto clients = ClientCensus(connection).take();
    return std::any_of(clients.begin(), clients.end(), [&](const ClientResources& client) {
        return readsScreen({.hasWindows = client.has(window),
                            .hasSharedMemory = client.has(sharedMemory),
                            .hasDamage = client.has(damage),
                            .followsPointerImage = client.has(pointerImage)});
    });
}

} // namespace nimbrale::x11
