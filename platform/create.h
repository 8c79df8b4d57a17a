#pragma once

#include "platform/cameras.h"
#include "platform/main_queue.h"
#include "platform/platform.h"
#include "platform/result.h"

#include <memory>

namespace nimbrale {

/// Makes the toolkit follow the desktop in what it does not find out by itself. Call on the main thread before the
/// toolkit's application object.
void prepareToolkit();

/// Probes the running system and makes its platform. Call once on the main thread, after the toolkit's application
/// object and before any window of the application: the capture must see every window come. Fails with a message for
/// the user where the system lacks what nothing can stand in for.
[[nodiscard]] Result<std::unique_ptr<Platform>> createPlatform();

/// The computer's cameras; never null, though a system may have none. Main thread only, after the toolkit's application
/// object; `queue` must outlive them and the cameras that they open.
[[nodiscard]] std::unique_ptr<Cameras> createCameras(MainQueue& queue);

} // namespace nimbrale
