#pragma once

#include "platform/main_queue.h"
#include "platform/panel.h"
#include "platform/session_lock.h"
#include "platform/x11/displays/x11_screens.h"
#include "platform/x11/server/connection.h"
#include "platform/x11/server/event_dispatcher.h"
#include "platform/x11/server/painted_regions.h"

#include <memory>
#include <optional>
#include <xcb/xcb.h>

namespace nimbrale::x11 {

class VirtualArea;

/// Makes the application's panels and keeps them in front of everything else. Main thread only.
class X11Panels final : public Panels {
public:
    /// The references must outlive it, and it must outlive its panels. It tells `painted` what it paints.
    X11Panels(Connection& connection, EventDispatcher& events, X11Screens& screens, MainQueue& queue,
              std::shared_ptr<PaintedRegions> painted);
    ~X11Panels() override;

    [[nodiscard]] std::unique_ptr<Panel> create(const PanelOptions& options) override;

    /// Where full-screen panels are put when they are shown; nullptr leaves them in the root window. `area` must
    /// outlive the panels that it was given.
    void setVirtualArea(VirtualArea* area);
    /// As far as screen lockers are known by their windows.
    [[nodiscard]] SessionLock& sessionLock();
    /// `nativeWindow` may lie in a window manager's frame.
    [[nodiscard]] Subscription keepBelow(std::uintptr_t nativeWindow) override;
    void setInput(PanelInput input) override;
    [[nodiscard]] std::optional<EventTime> timeOfLastClick() const override;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace nimbrale::x11
