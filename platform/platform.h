#pragma once

#include "platform/audio_sources.h"
#include "platform/cameras.h"
#include "platform/main_queue.h"
#include "platform/movie_writer.h"
#include "platform/panel.h"
#include "platform/screen_capture.h"
#include "platform/screens.h"
#include "platform/session_lock.h"
#include "platform/virtual_displays.h"
#include "platform/workspace.h"

namespace nimbrale {

/// Everything that product code knows of the running system. What it returns lives as long as it does.
class Platform {
public:
    virtual ~Platform() = default;

    [[nodiscard]] virtual MainQueue& mainQueue() = 0;
    [[nodiscard]] virtual Screens& screens() = 0;
    [[nodiscard]] virtual ScreenCapture& screenCapture() = 0;
    [[nodiscard]] virtual VirtualDisplays& virtualDisplays() = 0;
    [[nodiscard]] virtual Panels& panels() = 0;
    [[nodiscard]] virtual Workspace& workspace() = 0;
    [[nodiscard]] virtual SessionLock& sessionLock() = 0;
    [[nodiscard]] virtual Cameras& cameras() = 0;
    [[nodiscard]] virtual Microphones& microphones() = 0;
    [[nodiscard]] virtual Movies& movies() = 0;

    /// Called on the main queue when the connection to the desktop is lost; nothing works any more then.
    std::function<void(Error)> onConnectionLost;
};

} // namespace nimbrale
