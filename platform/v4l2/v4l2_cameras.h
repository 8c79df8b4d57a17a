#pragma once

#include "platform/cameras.h"
#include "platform/main_queue.h"

#include <chrono>
#include <filesystem>
#include <memory>

namespace nimbrale::v4l2 {

/// After how much time without a picture a camera counts as lost. The slowest ones start within two seconds.
constexpr std::chrono::seconds cameraPatience{5};

/// The cameras that the kernel knows (Video4Linux), by the files in `folder`, as they come and go. Nobody is asked
/// whether they may be used: access is always granted; no camera is preferred. `queue` must outlive it and the cameras
/// that it opens. Main thread only.
[[nodiscard]] std::unique_ptr<Cameras> createV4l2Cameras(MainQueue& queue, std::filesystem::path folder = "/dev",
                                                         std::chrono::milliseconds patience = cameraPatience);

} // namespace nimbrale::v4l2
