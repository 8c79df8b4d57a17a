#pragma once

#include "platform/camera_pictures/camera_loss.h"
#include "platform/camera_pictures/camera_picture.h"
#include "platform/cameras.h"
#include "platform/main_queue.h"
#include "platform/v4l2/camera_input.h"
#include "platform/v4l2/camera_nodes.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace nimbrale::v4l2 {

/// One camera that is open, with a thread of its own. Main thread only.
class V4l2Camera final : public OpenCamera {
public:
    /// `queue` must outlive it. A camera that gives no picture for as long as `patience` is lost.
    V4l2Camera(MainQueue& queue, CameraNode node, Cameras::Handlers handlers, std::chrono::milliseconds patience);
    /// Waits until the camera is closed, which takes as long as its driver does.
    ~V4l2Camera() override;
    V4l2Camera(const V4l2Camera&) = delete;
    V4l2Camera& operator=(const V4l2Camera&) = delete;

private:
    void run();
    void read(CameraInput& input);
    [[nodiscard]] bool waitFor(std::chrono::nanoseconds time);

    const CameraNode node_;
    const std::function<int(int width, int height)> wantedHalvings_;
    const std::function<void(std::shared_ptr<const BufferSurface> picture)> onPicture_;
    CameraLoss loss_;
    const std::chrono::milliseconds patience_;

    std::mutex mutex_;
    std::condition_variable closing_;
    bool isClosing_ = false;
    std::thread thread_;
};

} // namespace nimbrale::v4l2
