#pragma once

#include "geometry/picture_size.h"
#include "platform/cameras.h"
#include "platform/main_queue.h"
#include "platform/serial_queue.h"
#include "settings/app_settings.h"
#include "webcam/webcam_pictures.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace nimbrale {

/// The one camera that the application uses, and what becomes of its pictures. It is open only between `selectDevice`
/// and `stop`. A camera that goes is used again when it comes back. Main thread only.
class WebcamCamera {
public:
    using Background = AppSettings::WebcamBackground;
    /// Makes the picture for a background other than the original one, its sides halved so often (`PictureHalving`);
    /// nothing where that fails. Called on a thread of the camera's own, for one picture at a time.
    using Effects = std::function<std::shared_ptr<const BufferSurface>(
        const std::shared_ptr<const BufferSurface>& picture, Background background, int halvings)>;

    /// How long a camera that failed is left alone before it is tried again.
    static constexpr std::chrono::seconds retryDelay{3};

    /// `cameras` and `queue` must outlive it.
    WebcamCamera(Cameras& cameras, MainQueue& queue, Effects effects);
    ~WebcamCamera();
    WebcamCamera(const WebcamCamera&) = delete;
    WebcamCamera& operator=(const WebcamCamera&) = delete;

    /// What layers show of it.
    [[nodiscard]] const std::shared_ptr<WebcamPictures>& pictures() const { return pictures_; }

    /// Opens the camera with that identifier, or, where there is none, the user's preferred one, else the first. Does
    /// nothing when that identifier was selected already.
    void selectDevice(const std::string& deviceID);
    void setBackground(Background background);
    /// How large, in pixels, the picture is shown at most: far larger ones are made smaller before they are handed on.
    void setShownSize(PixelSize size);
    /// Closes the camera: its light goes out. The next selection opens it again.
    void stop();

private:
    class Intake;

    [[nodiscard]] std::optional<CameraDevice> wantedDevice() const;
    void followDevices();
    void open();
    void close();
    void lost(const CameraDevice& device, const Error& error);
    void tellLoss(const CameraDevice& device, const std::string& reason);
    void tellOnce(const std::string& problem);

    Cameras& cameras_;
    MainQueue& queue_;
    std::shared_ptr<WebcamPictures> pictures_ = std::make_shared<WebcamPictures>();
    /// Ends, with what it has to do, before what it works for.
    SerialQueue effectsQueue_{"Nimbrale.camera.effects"};
    std::shared_ptr<Intake> intake_;
    /// Absent while no camera is wanted.
    std::optional<std::string> deviceID_;
    /// What is open or was tried last.
    std::optional<CameraDevice> device_;
    std::unique_ptr<OpenCamera> camera_;
    std::string toldProblem_;
    std::unique_ptr<Timer> retry_;
    Subscription devices_;
};

} // namespace nimbrale
