#pragma once

#include "platform/cameras.h"
#include "platform/main_queue.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>

namespace nimbrale {

/// What `CameraLoss` tells of a camera whatever service it is read through.
namespace camera_loss {

inline constexpr const char* isGone = "is not there any more. Plug it in again, or choose another camera.";
inline constexpr const char* isBroken = "stopped giving pictures. Plug it in again, or choose another camera.";
inline constexpr const char* isUnreadable = "sends pictures that cannot be read. Choose another camera.";
inline constexpr const char* isNotStarted =
    "could not be started. Another program may be using it: close that one, or choose another camera.";
inline constexpr const char* isSilent =
    "gives no picture. Another program may be using it: close that one, or plug the camera in again.";

} // namespace camera_loss

/// Tells whoever opened a camera, once, that it gives no pictures any more. Made and destroyed on the main thread;
/// nobody is told after that.
class CameraLoss {
public:
    /// `queue` must outlive it. `onLost` is that of `Cameras::Handlers`.
    CameraLoss(MainQueue& queue, std::string camera, std::function<void(const Error& error)> onLost);
    CameraLoss(const CameraLoss&) = delete;
    CameraLoss& operator=(const CameraLoss&) = delete;

    /// `what` goes on from the camera's name: what is wrong with it and what to do. Only the first call counts. Any
    /// thread.
    void tell(const std::string& what);
    /// Any thread.
    [[nodiscard]] bool isTold() const { return isTold_; }

private:
    /// What belongs to the main thread.
    struct Listener {
        std::function<void(const Error& error)> onLost;
    };

    MainQueue& queue_;
    const std::string camera_;
    const std::shared_ptr<Listener> listener_;
    std::atomic<bool> isTold_ = false;
};

} // namespace nimbrale
