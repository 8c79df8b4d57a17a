// Waits until nobody has the virtual display of an X screen any more, and removes what was left of it, but not while
// programs read the screen.

#include "platform/x11/server/connection.h"
#include "platform/x11/server/handles.h"
#include "platform/x11/virtual_display/display_keeping.h"
#include "platform/x11/virtual_display/lasting_connection.h"
#include "platform/x11/virtual_display/virtual_display_record.h"

#include <thread>
#include <xcb/xfixes.h>

namespace {

using namespace nimbrale::x11;

/// False when the server has gone.
bool waitUntilUnclaimed(Connection& connection)
{
    xcb_xfixes_select_selection_input(connection.get(), connection.root(), VirtualDisplayClaim::selection(connection),
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    while (VirtualDisplayClaim::isTaken(connection)) {
        if (const Reply<xcb_generic_event_t> event(xcb_wait_for_event(connection.get())); !event)
            return false;
    }
    return !connection.isLost();
}

void removeWhatIsLeft(Connection& connection)
{
    const auto record = VirtualDisplayRecord::read(connection);
    if (!record)
        return;
    raiseLasting(connection, record->card);
    if (!keepWhileRead(connection, *record))
        return;
    // Another instance that has come by now removes it itself, or goes on with it.
    const auto claim = VirtualDisplayClaim::take(connection);
    if (!claim)
        return;
    std::this_thread::sleep_for(lastPictureTime);
    RandrLayout layout(connection);
    removeLeftovers(connection, layout, connection.atomName(record->monitor));
}

} // namespace

int main(int argc, char** argv)
{
    const auto connection = Connection::open(argc > 1 ? argv[1] : "");
    if (!connection)
        return 1;
    if (waitUntilUnclaimed(**connection))
        removeWhatIsLeft(**connection);
    // What the server has not read yet of a client that goes, it may never read.
    (*connection)->synchronize();
    return 0;
}
