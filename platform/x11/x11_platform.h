#pragma once

#include "platform/event_time.h"
#include "platform/platform.h"
#include "platform/result.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace nimbrale::x11 {

/// What the rest of the system offers. All of it must outlive the platform.
struct SessionServices {
    MainQueue& mainQueue;
    Workspace& workspace;
    Cameras& cameras;
    Microphones& microphones;
    SystemAudio& systemAudio;
};

/// Makes the platform of an X server. To be called before the first window of the application. `displayName` empty
/// means the environment's display.
[[nodiscard]] Result<std::unique_ptr<Platform>> createX11Platform(const SessionServices& services,
                                                                  const std::string& displayName = {});

/// Brings a window of the toolkit, which is shown, to the front and gives it the keyboard, for what the user did at
/// `cause`, or just now. Main thread only, while the toolkit's application object runs on an X server.
void activateToolkitWindow(std::uintptr_t nativeWindow, std::optional<EventTime> cause);

} // namespace nimbrale::x11
