#include "platform/x11/capture/pointer_hiding.h"

#include "platform/x11/server/handles.h"

#include <algorithm>
#include <vector>
#include <xcb/res.h>

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
    xcb_connection_t* const raw = connection_.get();
    const Reply<xcb_res_query_clients_reply_t> clients(
        xcb_res_query_clients_reply(raw, xcb_res_query_clients(raw), nullptr));
    if (!clients)
        return false;
    std::vector<xcb_res_query_client_resources_cookie_t> questions;
    const xcb_res_client_t* const list = xcb_res_query_clients_clients(clients.get());
    for (int index = 0; index < xcb_res_query_clients_clients_length(clients.get()); ++index)
        questions.push_back(xcb_res_query_client_resources(raw, list[index].resource_base));
    bool isFound = false;
    for (const auto& question : questions) {
        // None for a program that has ended meanwhile.
        xcb_generic_error_t* rawError = nullptr;
        const Reply<xcb_res_query_client_resources_reply_t> records(
            xcb_res_query_client_resources_reply(raw, question, &rawError));
        const Reply<xcb_generic_error_t> error(rawError);
        if (!records)
            continue;
        const xcb_res_type_t* const types = xcb_res_query_client_resources_types(records.get());
        isFound |= std::any_of(types, types + xcb_res_query_client_resources_types_length(records.get()),
                               [this](const xcb_res_type_t& type) { return type.resource_type == recordName_; });
    }
    return isFound;
}

} // namespace nimbrale::x11
