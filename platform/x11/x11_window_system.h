#pragma once

#include "platform/audio_sources.h"
#include "platform/event_time.h"
#include "platform/main_queue.h"
#include "platform/result.h"
#include "platform/window_system.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace nimbrale::x11 {

/// Connects to an X server. `mainQueue` and `systemAudio`, which streams deliver, must outlive it. To be called before
/// the first window of the application. `displayName` empty means the environment's display.
[[nodiscard]] Result<std::unique_ptr<WindowSystem>>
createX11WindowSystem(MainQueue& mainQueue, SystemAudio& systemAudio, const std::string& displayName = {});

/// Brings a window of the toolkit, which is shown, to the front and gives it the keyboard, for what the user did at
/// `cause`, or just now. Main thread only, while the toolkit's application object runs on an X server.
void activateToolkitWindow(std::uintptr_t nativeWindow, std::optional<EventTime> cause);

} // namespace nimbrale::x11
