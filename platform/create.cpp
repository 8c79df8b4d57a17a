#include "platform/create.h"

#include "platform/combined_audio.h"
#include "platform/combined_cameras.h"
#include "platform/desktop/desktop_session.h"
#include "platform/desktop/device_access.h"
#include "platform/desktop/login_session.h"
#include "platform/desktop/qt_main_queue.h"
#include "platform/desktop/qt_workspace.h"
#include "platform/desktop/screen_savers.h"
#include "platform/ffmpeg/ffmpeg_movies.h"
#include "platform/opencv/model_file.h"
#include "platform/opencv/opencv_person_segmentation.h"
#include "platform/pipewire/pipewire_audio.h"
#include "platform/pipewire/pipewire_cameras.h"
#include "platform/pulseaudio/pulseaudio_audio.h"
#include "platform/v4l2/v4l2_cameras.h"
#include "platform/x11/displays/display_scale.h"
#include "platform/x11/x11_window_system.h"

#include <QCoreApplication>
#include <QtGlobal>

#include <filesystem>

namespace nimbrale {

namespace {

/// `access` must outlive it.
pipewire::AccessQuestion questionFor(DeviceAccess& access)
{
    return [&access](std::function<void(bool isGranted)> onAnswer) { access.request(std::move(onAnswer)); };
}

/// Only where there is a sandbox. `access` must outlive it.
pipewire::RemoteQuestion remoteOf(const DeviceAccess& access)
{
    if (!access.hasPortal())
        return {};
    return [&access] { return access.openCameras(); };
}

/// `known` must outlive it.
DeviceService soundOf(pipewire::KnownDevices& known)
{
    return {[&known] { return known.hasSound(); },
            [&known](std::function<void()> observer) { return known.observeSound(std::move(observer)); }};
}

/// `known` must outlive it.
DeviceService camerasOf(pipewire::KnownDevices& known)
{
    return {[&known] { return known.hasCameras(); },
            [&known](std::function<void()> observer) { return known.observeWhetherItHasCameras(std::move(observer)); }};
}

/// The toolkit's parts and, over them, the window system's; they go in the other order.
class DesktopPlatform final : public Platform {
public:
    DesktopPlatform() = default;
    ~DesktopPlatform() override
    {
        // Work that did not run any more may own parts of the window system, such as a stream that was about to stop.
        mainQueue_.dropPending();
    }
    DesktopPlatform(const DesktopPlatform&) = delete;
    DesktopPlatform& operator=(const DesktopPlatform&) = delete;

    [[nodiscard]] Result<void> connect()
    {
        auto windowSystem = x11::createX11WindowSystem(mainQueue_, *systemAudio_);
        if (!windowSystem)
            return tl::make_unexpected(windowSystem.error());
        windowSystem_ = std::move(*windowSystem);
        windowSystem_->onConnectionLost = [this](const Error& error) {
            if (onConnectionLost)
                onConnectionLost(error);
        };
        const auto followLockers = [this] {
            sessionLock_.report("a screen locker's window", windowSystem_->sessionLock().isLocked());
        };
        lockers_ = windowSystem_->sessionLock().observe(followLockers);
        followLockers();
        return {};
    }

    [[nodiscard]] MainQueue& mainQueue() override { return mainQueue_; }
    [[nodiscard]] Screens& screens() override { return windowSystem_->screens(); }
    [[nodiscard]] ScreenCapture& screenCapture() override { return windowSystem_->screenCapture(); }
    [[nodiscard]] VirtualDisplays& virtualDisplays() override { return windowSystem_->virtualDisplays(); }
    [[nodiscard]] Panels& panels() override { return windowSystem_->panels(); }
    [[nodiscard]] Workspace& workspace() override { return workspace_; }
    [[nodiscard]] SessionLock& sessionLock() override { return sessionLock_; }
    [[nodiscard]] Cameras& cameras() override { return *cameras_; }
    [[nodiscard]] Microphones& microphones() override { return *microphones_; }
    [[nodiscard]] Movies& movies() override { return *movies_; }

private:
    QtMainQueue mainQueue_;
    QtWorkspace workspace_{x11::activateToolkitWindow};
    LockReports sessionLock_;
    ScreenSavers screenSavers_{QDBusConnection::sessionBus(), sessionLock_};
    LoginSession loginSession_{QDBusConnection::systemBus(), mainQueue_, sessionLock_};
    DeviceAccess cameraAccess_{DeviceKind::camera, QDBusConnection::sessionBus(), mainQueue_};
    DeviceAccess microphoneAccess_{DeviceKind::microphone, QDBusConnection::sessionBus(), mainQueue_};
    pipewire::KnownDevices knownDevices_{mainQueue_, remoteOf(cameraAccess_)};
    // PipeWire may have the cameras of other programs and of other computers, too; without it, or where nobody manages
    // it, there are the kernel's.
    std::unique_ptr<Cameras> cameras_ =
        combineCameras(pipewire::createPipewireCameras(mainQueue_, knownDevices_, questionFor(cameraAccess_)),
                       camerasOf(knownDevices_), v4l2::createV4l2Cameras(mainQueue_));
    // On many desktops PipeWire has the cameras only, and PulseAudio the sound.
    std::unique_ptr<Microphones> microphones_ =
        combineMicrophones(pipewire::createPipewireMicrophones(knownDevices_, questionFor(microphoneAccess_)),
                           soundOf(knownDevices_), pulseaudio::createPulseaudioMicrophones(mainQueue_));
    std::unique_ptr<SystemAudio> systemAudio_ =
        combineSystemAudio(pipewire::createPipewireSystemAudio(), pulseaudio::createPulseaudioSystemAudio());
    std::unique_ptr<Movies> movies_ =
        ffmpeg::createFfmpegMovies(mainQueue_, ffmpeg::HardwareSearch::Means::ofThisMachine());
    std::unique_ptr<WindowSystem> windowSystem_;
    Subscription lockers_;
};

} // namespace

void prepareToolkit()
{
    x11::scaleToolkitAsDesktop();
}

Result<std::unique_ptr<Platform>> createPlatform()
{
    // On a Wayland desktop an X server shows the windows of X programs only: a share of it would be full of holes.
    // NIMBRALE_PLATFORM=x11 uses it all the same, for tests and for who wants just that.
    const bool isX11Forced = qEnvironmentVariable("NIMBRALE_PLATFORM") == QLatin1String("x11");
    if (!isX11Forced && namesWaylandDisplay())
        return fail(ErrorCode::unsupported,
                    "Nimbrale cannot capture a Wayland desktop yet. Log in to an X11 session (often listed as \"Xorg\" "
                    "on the login screen) to use it.");
    auto platform = std::make_unique<DesktopPlatform>();
    if (const Result<void> connected = platform->connect(); !connected)
        return tl::make_unexpected(connected.error());
    return platform;
}

Result<std::unique_ptr<PersonSegmentation>> createPersonSegmentation()
{
    const std::filesystem::path folder = QCoreApplication::applicationDirPath().toStdString();
    return opencv::createPersonSegmentation(opencv::modelFile(folder));
}

} // namespace nimbrale
