#include "platform/x11/capture/display_watcher.h"

#include "platform/x11/displays/randr_displays.h"
#include "platform/x11/server/events.h"

#include <utility>
#include <xcb/randr.h>

namespace nimbrale::x11 {

DisplayWatcher::DisplayWatcher(Connection& connection, EventRoutes& events)
    : connection_(connection), layout_(connection)
{
    subscriptions_.push_back(events.add({XCB_CONFIGURE_NOTIFY}, [this](const xcb_generic_event_t& event) {
        if (eventAs<xcb_configure_notify_event_t>(event).window == connection_.root())
            places_.doubt();
    }));
    const Extension& randr = connection.extensions().randr;
    if (!randr.isPresent)
        return;
    xcb_randr_select_input(connection.get(), connection.root(),
                           XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE | XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE |
                               XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE);
    subscriptions_.push_back(
        events.add({randr.firstEvent + XCB_RANDR_SCREEN_CHANGE_NOTIFY, randr.firstEvent + XCB_RANDR_NOTIFY},
                   [this](const xcb_generic_event_t&) { places_.doubt(); }));
}

void DisplayWatcher::update()
{
    if (!places_.areDoubted())
        return;
    std::vector<DisplayPlace> displays;
    for (const RandrDisplay& display : RandrDisplays(connection_, layout_).read())
        displays.push_back({display.nameAtom, display.pixels});
    places_.learn(std::move(displays));
}

} // namespace nimbrale::x11
