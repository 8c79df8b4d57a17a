#pragma once

#include "platform/camera_pictures/camera_loss.h"
#include "platform/camera_pictures/camera_picture.h"
#include "platform/cameras.h"
#include "platform/main_queue.h"
#include "platform/pipewire/daemon_connection.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>

namespace nimbrale::pipewire {

/// One camera that is open, over a connection of its own with a thread of its own, so that a slow consumer of pictures
/// holds up nobody else. Main thread only.
class CameraStream final : public OpenCamera {
public:
    /// `queue` must outlive it. A camera that gives no picture for as long as `patience` is lost. `openRemote` is asked
    /// for the connection, on the camera's thread.
    CameraStream(MainQueue& queue, CameraDevice device, Cameras::Handlers handlers, std::chrono::seconds patience,
                 RemoteQuestion openRemote = {});
    /// Waits until the daemon has let the camera go, but not for longer than half a second.
    ~CameraStream() override;
    CameraStream(const CameraStream&) = delete;
    CameraStream& operator=(const CameraStream&) = delete;

private:
    struct Events;

    [[nodiscard]] bool connectLater();
    [[nodiscard]] bool connect();
    [[nodiscard]] bool startStream();
    void takePicture();
    [[nodiscard]] std::shared_ptr<const BufferSurface> pictureIn(const spa_buffer& buffer);
    void changeFormat(const spa_pod* parameter);
    void look();

    const CameraDevice device_;
    const std::function<void(std::shared_ptr<const BufferSurface> picture)> onPicture_;
    CameraLoss loss_;
    const std::chrono::seconds patience_;
    const RemoteQuestion openRemote_;

    std::atomic<bool> isClosing_ = false; ///< there is no use for pictures any more

    // The loop's thread has these.
    PictureMaker pictures_;
    std::optional<CameraFormat> format_;
    std::chrono::steady_clock::time_point lastPicture_;
    bool hasUnreadable_ = false; ///< since the last picture
    bool wasConnected_ = false;

    ThreadLoop loop_;
    LoopSource start_;
    LoopSource watch_;
    std::unique_ptr<DaemonConnection> connection_;
    Stream stream_;
    Listener streamListener_;
};

} // namespace nimbrale::pipewire
