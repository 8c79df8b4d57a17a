#include "platform/x11/server/server_grab.h"

namespace nimbrale::x11 {

ServerGrab::ServerGrab(Connection& connection) : connection_(connection)
{
    // What waits in the buffer would be sent with the first half, and the rest later.
    connection_.flush();
    xcb_grab_server(connection_.get());
}

ServerGrab::~ServerGrab()
{
    xcb_ungrab_server(connection_.get());
    connection_.flush();
}

} // namespace nimbrale::x11
