#pragma once

#include "platform/panel.h"
#include "platform/result.h"
#include "platform/screen_capture.h"
#include "platform/screens.h"
#include "platform/session_lock.h"
#include "platform/virtual_displays.h"

#include <functional>

namespace nimbrale {

/// The part of a platform that a window system fills. What it returns lives as long as it does.
class WindowSystem {
public:
    virtual ~WindowSystem() = default;

    [[nodiscard]] virtual Screens& screens() = 0;
    [[nodiscard]] virtual ScreenCapture& screenCapture() = 0;
    [[nodiscard]] virtual VirtualDisplays& virtualDisplays() = 0;
    [[nodiscard]] virtual Panels& panels() = 0;
    /// What the window system tells of the lock.
    [[nodiscard]] virtual SessionLock& sessionLock() = 0;

    /// Called on the main queue when the connection to the desktop is lost; nothing works any more then.
    std::function<void(Error)> onConnectionLost;
};

} // namespace nimbrale
