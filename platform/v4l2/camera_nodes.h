#pragma once

#include "platform/cameras.h"

#include <filesystem>
#include <vector>

namespace nimbrale::v4l2 {

/// A camera and the file that it is opened by.
struct CameraNode {
    CameraDevice device;
    std::filesystem::path path;

    bool operator==(const CameraNode&) const = default;
};

/// The cameras whose files lie in a folder, such as /dev, in the order of their numbers. Identifiers are made of the
/// names that the system gives to the sockets they are plugged in (v4l/by-path), in the way of PipeWire's session
/// managers, so that a camera is the same there; where the system gives none, they are the files' own. What gives no
/// pictures, and what this user may not open, is left out. Asks the devices, which takes some milliseconds. Any thread.
[[nodiscard]] std::vector<CameraNode> findCameraNodes(const std::filesystem::path& folder);

} // namespace nimbrale::v4l2
