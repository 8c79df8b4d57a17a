#pragma once

#include "platform/buffer_surface.h"
#include "platform/observers.h"
#include "platform/result.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale {

struct CameraDevice {
    /// The same whenever the camera is plugged in, at the same socket of the computer.
    std::string id;
    /// What the user knows it by; UTF-8.
    std::string name;

    bool operator==(const CameraDevice&) const = default;
};

/// A camera that is open. Destroying it closes the camera, so that its light goes out, before the call returns, which
/// may take as long as one picture does; no handler is called any more then. Main thread only.
class OpenCamera {
public:
    virtual ~OpenCamera() = default;
};

/// The computer's cameras. Main thread only.
class Cameras {
public:
    struct Handlers {
        /// Each picture, opaque, in the camera's own size, which may change, halved as often as was wanted. Called on a
        /// thread of the camera's own, one call at a time; pictures that come meanwhile are dropped, but for the
        /// newest. Neither it nor `wantedHalvings` may wait for the main thread: that may wait for the camera to close.
        std::function<void(std::shared_ptr<const BufferSurface> picture)> onPicture;
        /// The camera gives no pictures any more, or none for some seconds: it is gone, busy or broken. The message
        /// names it and says what to do. Called at most once, on the main queue; no picture comes after it, even if the
        /// camera comes back: open it again then. The camera may be destroyed within the call.
        std::function<void(const Error& error)> onLost;
        /// How often the sides of the next picture are to be halved (`PictureHalving`), given the camera's own size in
        /// pixels: what is shown small need not be made large first. Asked before each picture, where `onPicture` is
        /// called; where there is nobody to ask, nothing is halved.
        std::function<int(int width, int height)> wantedHalvings = {};
    };

    virtual ~Cameras() = default;

    /// Those that are there now, in the system's order. The system is not asked before the first call for devices,
    /// other than to observe them; what is there becomes known a moment later, which is told like a change.
    [[nodiscard]] virtual std::vector<CameraDevice> devices() const = 0;
    /// The one that the user prefers in all programs, or that the system chose for them, if there is any such.
    [[nodiscard]] virtual std::optional<std::string> preferredDevice() const = 0;
    /// A camera came or went, or another one is preferred.
    [[nodiscard]] virtual Subscription observeDevices(std::function<void()> observer) = 0;

    /// Asks the user, where the system wants that, whether this application may use cameras. `onAnswer` is called
    /// later, on the main queue, unless the application ends before.
    virtual void requestAccess(std::function<void(bool isGranted)> onAnswer) = 0;
    /// Opens a camera by its identifier. What fails is told by `onLost`, not within this call.
    [[nodiscard]] virtual std::unique_ptr<OpenCamera> open(const std::string& id, Handlers handlers) = 0;
};

} // namespace nimbrale
