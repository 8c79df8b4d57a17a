#include "platform/v4l2/v4l2_camera.h"

#include <array>
#include <cerrno>
#include <pthread.h>
#include <string>
#include <utility>

namespace nimbrale::v4l2 {

namespace {

using Clock = std::chrono::steady_clock;

bool meansGone(int error)
{
    return error == ENOENT || error == ENODEV || error == ENXIO;
}

const char* reasonNotToStart(int error)
{
    if (meansGone(error))
        return camera_loss::isGone;
    if (error == EACCES || error == EPERM)
        return "may not be used by you. Ask whoever looks after this computer to let you (mostly by the group "
               "\"video\").";
    if (error == ENOTSUP)
        return camera_loss::isUnreadable;
    return camera_loss::isNotStarted;
}

/// How long after a picture the next one need not be looked for, and how often it is looked for then. The library hands
/// out no descriptor that could be waited for.
constexpr double restOfInterval = 0.75;
constexpr std::chrono::milliseconds lookPause{2};

} // namespace

V4l2Camera::V4l2Camera(MainQueue& queue, CameraNode node, Cameras::Handlers handlers,
                       std::chrono::milliseconds patience)
    : node_(std::move(node)), wantedHalvings_(std::move(handlers.wantedHalvings)),
      onPicture_(std::move(handlers.onPicture)), loss_(queue, node_.device.name, std::move(handlers.onLost)),
      patience_(patience), thread_([this] { run(); })
{}

V4l2Camera::~V4l2Camera()
{
    {
        const std::lock_guard lock(mutex_);
        isClosing_ = true;
    }
    closing_.notify_all();
    thread_.join();
}

void V4l2Camera::run()
{
    pthread_setname_np(pthread_self(), "nimbrale-camera");
    auto input = CameraInput::open(node_.path, [this] { return !waitFor({}); });
    if (input)
        read(**input);
    else
        loss_.tell(reasonNotToStart(input.error()));
}

void V4l2Camera::read(CameraInput& input)
{
    PictureMaker pictures(wantedHalvings_);
    Clock::time_point lastPicture = Clock::now();
    bool hasUnreadable = false; // Since the last picture.
    const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(input.interval() * restOfInterval);
    for (std::chrono::nanoseconds pause{}; waitFor(pause);) {
        const auto bytes = input.readNewest();
        if (!bytes) {
            loss_.tell(meansGone(bytes.error()) ? camera_loss::isGone : camera_loss::isBroken);
            return;
        }
        pause = bytes->empty() ? lookPause : rest;
        if (!bytes->empty()) {
            std::shared_ptr<const BufferSurface> picture =
                pictures.make(input.format(), std::array{CameraPlane{*bytes}});
            hasUnreadable = !picture;
            if (picture) {
                lastPicture = Clock::now();
                onPicture_(std::move(picture));
            }
        }
        if (Clock::now() - lastPicture >= patience_) {
            loss_.tell(hasUnreadable ? camera_loss::isUnreadable : camera_loss::isSilent);
            return;
        }
    }
}

/// False, and at once, when the camera is being closed.
bool V4l2Camera::waitFor(std::chrono::nanoseconds time)
{
    std::unique_lock lock(mutex_);
    return !closing_.wait_for(lock, time, [this] { return isClosing_; });
}

} // namespace nimbrale::v4l2
