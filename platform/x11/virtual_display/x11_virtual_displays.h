#pragma once

#include "platform/main_queue.h"
#include "platform/virtual_displays.h"
#include "platform/x11/displays/x11_screens.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/virtual_display/virtual_area.h"

#include <memory>
#include <string>

namespace nimbrale::x11 {

class X11VirtualDisplay;

/// Makes the virtual display of an X screen: a RandR monitor over an enlarged X screen. One X screen
/// has one such display at a time, whichever process made it. Main thread only.
class X11VirtualDisplays final : public VirtualDisplays {
public:
    /// Removes what a process that ended without cleaning up left behind, unless a program reads the screen: `create`
    /// then takes it over, or a caretaker removes it later. All must outlive it. `displayName`, which the
    /// connection was opened with, may be empty for the environment's display.
    X11VirtualDisplays(Connection& connection, EventDispatcher& events, X11Screens& screens, MainQueue& mainQueue,
                       std::string displayName);
    ~X11VirtualDisplays() override;

    /// The device must go before this object does.
    [[nodiscard]] Result<std::unique_ptr<VirtualDisplayDevice>>
    create(const VirtualDisplayDescriptor& descriptor) override;
    [[nodiscard]] PixelRect bounds(DisplayID displayID) const override;

    /// Where windows for the virtual display register.
    [[nodiscard]] VirtualArea& area() { return area_; }

private:
    Connection& connection_;
    EventDispatcher& events_;
    X11Screens& screens_;
    MainQueue& mainQueue_;
    std::string displayName_;
    VirtualArea area_;
};

} // namespace nimbrale::x11
