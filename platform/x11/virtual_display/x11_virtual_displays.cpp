#include "platform/x11/virtual_display/x11_virtual_displays.h"

#include "platform/x11/displays/randr_layout.h"
#include "platform/x11/virtual_display/caretaker.h"
#include "platform/x11/virtual_display/screen_readers.h"
#include "platform/x11/virtual_display/virtual_display_record.h"
#include "platform/x11/virtual_display/x11_virtual_display.h"

namespace nimbrale::x11 {

namespace {

constexpr int monitorsVersion = 105;
// The name that displays of this application have had in every version.
constexpr const char* usualName = "Nimbrale";

} // namespace

X11VirtualDisplays::X11VirtualDisplays(Connection& connection, EventDispatcher& events, X11Screens& screens,
                                       MainQueue& mainQueue, std::string displayName)
    : connection_(connection), events_(events), screens_(screens), mainQueue_(mainQueue),
      displayName_(std::move(displayName)), area_(connection, events, mainQueue)
{
    if (connection.randrVersion() < monitorsVersion || VirtualDisplayClaim::isTaken(connection))
        return;
    RandrLayout layout(connection);
    const auto left = findLeftover(connection, layout, usualName);
    if (left && isScreenRead(connection)) {
        screens.setOwnMonitor(left->name);
        // For the case that nobody comes to want a display.
        startCaretaker(displayName_);
    } else {
        removeLeftovers(connection, layout, usualName);
    }
    screens.refresh();
}

X11VirtualDisplays::~X11VirtualDisplays() = default;

Result<std::unique_ptr<VirtualDisplayDevice>> X11VirtualDisplays::create(const VirtualDisplayDescriptor& descriptor)
{
    if (connection_.randrVersion() < monitorsVersion) {
        return fail(ErrorCode::unsupported, "This X server is too old for a virtual display: it lacks RandR 1.5. Share "
                                            "the window instead.");
    }
    auto display =
        X11VirtualDisplay::create({connection_, events_, screens_, mainQueue_, area_, displayName_}, descriptor);
    if (!display)
        return tl::make_unexpected(display.error());
    return std::unique_ptr<VirtualDisplayDevice>(std::move(*display));
}

PixelRect X11VirtualDisplays::bounds(DisplayID displayID) const
{
    const auto screen = screens_.find(displayID);
    return screen ? screen->pixels : PixelRect{};
}

} // namespace nimbrale::x11
