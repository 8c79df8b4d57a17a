#include "platform/x11/server/client_resources.h"

#include "platform/x11/server/handles.h"

#include <algorithm>
#include <map>
#include <utility>
#include <xcb/res.h>

namespace nimbrale::x11 {

namespace {

/// The questions what some clients have, by client, while their answers are on the way.
using Questions = std::map<std::uint32_t, xcb_res_query_client_resources_cookie_t>;

void ask(xcb_connection_t* connection, std::uint32_t client, Questions& questions)
{
    if (questions.count(client) == 0)
        questions.emplace(client, xcb_res_query_client_resources(connection, client));
}

std::vector<ClientResources> answersTo(xcb_connection_t* connection, const Questions& questions)
{
    std::vector<ClientResources> answers;
    for (const auto& [client, question] : questions) {
        // None for a program that has ended meanwhile.
        xcb_generic_error_t* rawError = nullptr;
        const Reply<xcb_res_query_client_resources_reply_t> records(
            xcb_res_query_client_resources_reply(connection, question, &rawError));
        const Reply<xcb_generic_error_t> error(rawError);
        if (!records)
            continue;
        ClientResources& resources = answers.emplace_back();
        const xcb_res_type_t* const types = xcb_res_query_client_resources_types(records.get());
        for (int type = 0; type < xcb_res_query_client_resources_types_length(records.get()); ++type) {
            if (types[type].count > 0)
                resources.types.push_back(types[type].resource_type);
        }
    }
    return answers;
}

} // namespace

bool ClientResources::has(xcb_atom_t type) const
{
    return std::find(types.begin(), types.end(), type) != types.end();
}

std::vector<ClientResources> ClientCensus::take()
{
    if (!connection_.extensions().resources.isPresent)
        return {};
    xcb_connection_t* const raw = connection_.get();
    const xcb_res_query_clients_cookie_t whoIsThere = xcb_res_query_clients(raw);
    // Those of the last time are asked at once, since they are mostly all that there are.
    Questions questions;
    for (const std::uint32_t client : std::exchange(clients_, {}))
        ask(raw, client, questions);
    const Reply<xcb_res_query_clients_reply_t> clients(xcb_res_query_clients_reply(raw, whoIsThere, nullptr));
    if (clients) {
        const xcb_res_client_t* const list = xcb_res_query_clients_clients(clients.get());
        for (int index = 0; index < xcb_res_query_clients_clients_length(clients.get()); ++index) {
            clients_.push_back(list[index].resource_base);
            ask(raw, clients_.back(), questions);
        }
    }
    return answersTo(raw, questions);
}

} // namespace nimbrale::x11
