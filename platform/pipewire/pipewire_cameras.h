#pragma once

#include "platform/cameras.h"
#include "platform/main_queue.h"

#include <chrono>
#include <functional>
#include <memory>

namespace nimbrale::pipewire {

/// Asks whether this application may use cameras, as `Cameras::requestAccess` does.
using AccessQuestion = std::function<void(std::function<void(bool isGranted)> onAnswer)>;

/// After how much time without a picture a camera counts as lost. The slowest ones start within two seconds.
constexpr std::chrono::seconds cameraPatience{5};

/// The cameras that the session's PipeWire knows, as it comes and goes. `queue` must outlive it and the cameras that it
/// opens. Main thread only.
[[nodiscard]] std::unique_ptr<Cameras> createPipewireCameras(MainQueue& queue, AccessQuestion access,
                                                             std::chrono::seconds patience = cameraPatience);

} // namespace nimbrale::pipewire
