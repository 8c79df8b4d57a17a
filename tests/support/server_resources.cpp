#include "tests/support/server_resources.h"

#include "tests/support/x_reply.h"

#include <fstream>
#include <vector>
#include <xcb/res.h>
#include <xcb/xcb.h>

namespace nimbrale::test {

namespace {

/// Of each client of the process, a number that stands for it in X-Resource.
std::vector<std::uint32_t> clientsOf(xcb_connection_t* connection, pid_t process)
{
    const xcb_res_client_id_spec_t everyone{XCB_NONE, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
    const Reply<xcb_res_query_client_ids_reply_t> reply(
        xcb_res_query_client_ids_reply(connection, xcb_res_query_client_ids(connection, 1, &everyone), nullptr));
    std::vector<std::uint32_t> clients;
    if (!reply)
        return clients;
    for (auto each = xcb_res_query_client_ids_ids_iterator(reply.get()); each.rem;
         xcb_res_client_id_value_next(&each)) {
        if (xcb_res_client_id_value_value_length(each.data) > 0 &&
            *xcb_res_client_id_value_value(each.data) == static_cast<std::uint32_t>(process))
            clients.push_back(each.data->spec.client);
    }
    return clients;
}

std::string atomName(xcb_connection_t* connection, xcb_atom_t atom)
{
    const Reply<xcb_get_atom_name_reply_t> reply(
        xcb_get_atom_name_reply(connection, xcb_get_atom_name(connection, atom), nullptr));
    if (!reply)
        return {};
    return {xcb_get_atom_name_name(reply.get()), static_cast<std::size_t>(xcb_get_atom_name_name_length(reply.get()))};
}

} // namespace

std::map<std::string, std::uint32_t> serverResources(xcb_connection_t* connection, pid_t process)
{
    std::map<std::string, std::uint32_t> counts;
    for (const std::uint32_t client : clientsOf(connection, process)) {
        const Reply<xcb_res_query_client_resources_reply_t> reply(xcb_res_query_client_resources_reply(
            connection, xcb_res_query_client_resources(connection, client), nullptr));
        if (!reply)
            continue;
        for (auto each = xcb_res_query_client_resources_types_iterator(reply.get()); each.rem; xcb_res_type_next(&each))
            counts[atomName(connection, each.data->resource_type)] += each.data->count;
    }
    counts.erase(std::string());
    return counts;
}

std::uint64_t residentBytes(pid_t process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string word; status >> word;) {
        std::uint64_t kibibytes = 0;
        if (word == "VmRSS:" && status >> kibibytes)
            return kibibytes * 1024;
    }
    return 0;
}

} // namespace nimbrale::test
