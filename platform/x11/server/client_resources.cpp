#include "platform/x11/server/client_resources.h"

#include "platform/x11/server/handles.h"

#include <algorithm>
#include <xcb/res.h>

namespace nimbrale::x11 {

bool ClientResources::has(xcb_atom_t type) const
{
    return std::find(types.begin(), types.end(), type) != types.end();
}

std::vector<ClientResources> resourcesOfClients(Connection& connection)
{
    if (!connection.extensions().resources.isPresent)
        return {};
    xcb_connection_t* const raw = connection.get();
    const Reply<xcb_res_query_clients_reply_t> clients(
        xcb_res_query_clients_reply(raw, xcb_res_query_clients(raw), nullptr));
    if (!clients)
        return {};
    const xcb_res_client_t* const list = xcb_res_query_clients_clients(clients.get());
    const int count = xcb_res_query_clients_clients_length(clients.get());
    std::vector<xcb_res_query_client_resources_cookie_t> questions;
    for (int index = 0; index < count; ++index)
        questions.push_back(xcb_res_query_client_resources(raw, list[index].resource_base));

    std::vector<ClientResources> result;
    for (int index = 0; index < count; ++index) {
        // None for a program that has ended meanwhile.
        xcb_generic_error_t* rawError = nullptr;
        const Reply<xcb_res_query_client_resources_reply_t> records(
            xcb_res_query_client_resources_reply(raw, questions[static_cast<std::size_t>(index)], &rawError));
        const Reply<xcb_generic_error_t> error(rawError);
        if (!records)
            continue;
        ClientResources& resources = result.emplace_back();
        const xcb_res_type_t* const types = xcb_res_query_client_resources_types(records.get());
        for (int type = 0; type < xcb_res_query_client_resources_types_length(records.get()); ++type) {
            if (types[type].count > 0)
                resources.types.push_back(types[type].resource_type);
        }
    }
    return result;
}

} // namespace nimbrale::x11
