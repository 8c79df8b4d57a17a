#pragma once

#include "platform/audio_sources.h"
#include "platform/pipewire/known_devices.h"
#include "platform/pipewire/pipewire_cameras.h"

#include <memory>

namespace nimbrale::pipewire {

/// The microphones that the session's PipeWire knows, as it comes and goes. `known` must outlive it. `access` asks
/// whether microphones may be used; the answer is held back until the devices are known. Main thread only.
[[nodiscard]] std::unique_ptr<Microphones> createPipewireMicrophones(KnownDevices& known, AccessQuestion access);

/// What the session's PipeWire plays. Main thread only.
[[nodiscard]] std::unique_ptr<SystemAudio> createPipewireSystemAudio();

} // namespace nimbrale::pipewire
