#pragma once

#include "platform/cameras.h"
#include "platform/combined_devices.h"

#include <memory>

namespace nimbrale {

/// The cameras of the first service while that is the one that has them, and otherwise those of the second, which is
/// not asked before. What was opened stays with the service that it was opened at. Access is asked for at the first
/// one. Main thread only.
[[nodiscard]] std::unique_ptr<Cameras> combineCameras(std::unique_ptr<Cameras> first, DeviceService service,
                                                      std::unique_ptr<Cameras> second);

} // namespace nimbrale
