#pragma once

#include "platform/file_descriptor.h"
#include "platform/v4l2/camera_nodes.h"

#include <filesystem>
#include <functional>
#include <thread>
#include <vector>

namespace nimbrale::v4l2 {

/// Follows which cameras there are, on a thread of its own that sleeps until something happens to their files.
class CameraWatch {
public:
    using Handler = std::function<void(const std::vector<CameraNode>& nodes)>;

    /// `folder` is as for `findCameraNodes`. `onChange` is called on the thread: with what there is at the start, and
    /// whenever that changed.
    CameraWatch(std::filesystem::path folder, Handler onChange);
    /// No handler is called any more after it.
    ~CameraWatch();
    CameraWatch(const CameraWatch&) = delete;
    CameraWatch& operator=(const CameraWatch&) = delete;

private:
    void run();
    [[nodiscard]] bool hasNews() const;

    const std::filesystem::path folder_;
    const Handler onChange_;
    FileDescriptor changes_; ///< of the folder; nothing where it cannot be watched
    FileDescriptor end_;     ///< becomes readable
    std::thread thread_;
};

} // namespace nimbrale::v4l2
