#include "platform/x11/server/server_grab.h"

namespace nimbrale::x11 {

ServerGrab::ServerGrab(Connection& connection) : connection_(connection)
{
    xcb_grab_server(connection_.get());
}

ServerGrab::~ServerGrab()
{
    xcb_ungrab_server(connection_.get());
    connection_.flush();
}

} // namespace nimbrale::x11
