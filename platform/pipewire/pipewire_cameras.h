#pragma once

#include "platform/cameras.h"
#include "platform/main_queue.h"
#include "platform/pipewire/known_devices.h"

#include <chrono>
#include <functional>
#include <memory>

namespace nimbrale::pipewire {

/// Asks whether this application may use devices of a kind, as `Cameras::requestAccess` does.
using AccessQuestion = std::function<void(std::function<void(bool isGranted)> onAnswer)>;

/// After how much time without a picture a camera counts as lost. The slowest ones start within two seconds.
constexpr std::chrono::seconds cameraPatience{5};

/// The cameras that the session's PipeWire knows, as it comes and goes. `queue` and `known` must outlive it and the
/// cameras that it opens. Main thread only.
[[nodiscard]] std::unique_ptr<Cameras> createPipewireCameras(MainQueue& queue, KnownDevices& known,
                                                             AccessQuestion access,
                                                             std::chrono::seconds patience = cameraPatience);

} // namespace nimbrale::pipewire
