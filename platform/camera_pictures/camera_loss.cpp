#include "platform/camera_pictures/camera_loss.h"

#include <utility>

namespace nimbrale {

CameraLoss::CameraLoss(MainQueue& queue, std::string camera, std::function<void(const Error& error)> onLost)
    : queue_(queue), camera_(std::move(camera)), listener_(std::make_shared<Listener>(Listener{std::move(onLost)}))
{}

void CameraLoss::tell(const std::string& what)
{
    if (isTold_.exchange(true))
        return;
    Error error{ErrorCode::temporary, "The camera \"" + camera_ + "\" " + what};
    queue_.post([weak = std::weak_ptr(listener_), error = std::move(error)] {
        const std::shared_ptr<Listener> listener = weak.lock();
        if (listener && listener->onLost)
            std::exchange(listener->onLost, nullptr)(error);
    });
}

} // namespace nimbrale
