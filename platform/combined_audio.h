#pragma once

#include "platform/audio_sources.h"
#include "platform/combined_devices.h"

#include <memory>

namespace nimbrale {

/// The microphones of the first service where that has sound, and otherwise, for as long as it has none, those of the
/// second, which is not asked before. What was opened stays with the service that it was opened at. Access is asked for
/// at the first one. Main thread only.
[[nodiscard]] std::unique_ptr<Microphones> combineMicrophones(std::unique_ptr<Microphones> first, DeviceService service,
                                                              std::unique_ptr<Microphones> second);

/// What the computer plays, of the first service where that can be listened to when it is opened, and otherwise of the
/// second. Where neither can, the first one's reason is told. Main thread only.
[[nodiscard]] std::unique_ptr<SystemAudio> combineSystemAudio(std::unique_ptr<SystemAudio> first,
                                                              std::unique_ptr<SystemAudio> second);

} // namespace nimbrale
