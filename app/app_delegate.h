#pragma once

#include "app/capture_failure.h"
#include "app/recording_control.h"
#include "app/sharing_notice.h"
#include "controls/overlay_colors.h"
#include "platform/platform.h"
#include "region/region_editor.h"
#include "settings/app_settings.h"
#include "share/region_capture.h"
#include "share/shared_screen.h"
#include "webcam/webcam_overlay.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace nimbrale {

/// Owns and wires the long-lived parts: the capture of the framed area, the screen that shows it, the frame that the
/// user drags, the webcam in it, and the recording of it. Builds this chain at the start and anew when the frame's
/// display changes. While the session is locked nothing is captured, and a card says so in the picture's place. Main
/// thread only.
class AppDelegate : public std::enable_shared_from_this<AppDelegate> {
public:
    /// Brings the Settings window to the front and gives it the keyboard, for what the user did at `cause` or just now.
    using ShowSettingsWindow = std::function<void(std::optional<EventTime> cause)>;

    /// Everything given must outlive the object. `camera` is the one that the webcam shows.
    [[nodiscard]] static std::shared_ptr<AppDelegate> create(Platform& platform, AppSettings& settings,
                                                             std::shared_ptr<WebcamCamera> camera,
                                                             ShowSettingsWindow showSettingsWindow,
                                                             const OverlayColors& colors = {});
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    /// The frame was moved or resized, or the sharing began or ended.
    std::function<void()> onFramedAreaChange;

    /// The whole start-up: follows the displays and the settings and starts the capture. Call once.
    void applicationWillFinishLaunching();
    /// Asked once, whoever wants the application to quit, before it does.
    [[nodiscard]] TerminateReply applicationShouldTerminate();
    /// Shows the Settings window in front, on the tab it showed last, for what the user did at `cause` or just now.
    void openSettings(std::optional<EventTime> cause = std::nullopt);
    /// The user started the application once more, at `cause` or just now: shows the Settings window, and tries a
    /// capture again that waited for its permission.
    void applicationWasReopened(std::optional<EventTime> cause);
    /// Starts a recording of the shared screen, or ends it. Ignored while there is no frame.
    void toggleRecording();
    /// The displays changed; half a second after the last such call the frame's display is checked. Where the captured
    /// area may show another display by now, the capture stops at once and the last picture stays.
    void screensDidChange();
    /// Restarts the capture where it was stopped, or where the frame's display has gone or has another frame or scale,
    /// and puts the frame in its place otherwise. A capture that failed waits for the user's answer, or for a display
    /// that comes, instead.
    void checkCapturedDisplay();

    /// The capture under way, and the frame once that capture has started; null while there is none.
    [[nodiscard]] const std::shared_ptr<RegionCapture>& capture() const { return capture_; }
    [[nodiscard]] const std::shared_ptr<RegionEditor>& editor() const { return editor_; }
    /// Null while there is no frame.
    [[nodiscard]] const std::shared_ptr<WebcamOverlay>& webcam() const { return webcam_; }
    [[nodiscard]] const SharedScreen& sharedScreen() const { return sharedScreen_; }
    [[nodiscard]] const RecordingControl& recording() const { return *recording_; }

private:
    AppDelegate(Platform& platform, AppSettings& settings, std::shared_ptr<WebcamCamera> camera,
                ShowSettingsWindow showSettingsWindow, const OverlayColors& colors);

    /// Calls the method, unless the object has gone by then.
    [[nodiscard]] std::function<void()> whileAlive(void (AppDelegate::*method)());
    void startCaptureChain();
    void startCapture(const std::shared_ptr<RegionCapture>& capture, std::optional<Result<ShareableContent>> content);
    void captureStarted(const Result<void>& result);
    void openSettingsTab(AppSettings::SettingsTab tab);
    void createEditor();
    void createWebcam();
    void showOrHideWebcam();
    void showRecordingTime(std::optional<double> seconds);
    void closeFrame();
    void restartCaptureChain();
    void stop(RegionCapture& capture);
    void captureStopped();
    void sessionLockDidChange();
    /// Whether nothing may be started now. What was to start does so when the session is unlocked.
    [[nodiscard]] bool holdBack();

    [[nodiscard]] bool followsChanges() const;
    void settingsWillChange();
    void settingsDidChange();
    void followRegion();
    void framedAreaChanged() const;
    void moveToDisplay(DisplayID displayID, const DisplayGeometry& geometry, const Rect& region);

    [[nodiscard]] bool isCapturedDisplayUnchanged() const;
    void tellOfSharing();

    Platform& platform_;
    AppSettings& settings_;
    std::shared_ptr<WebcamCamera> camera_;
    ShowSettingsWindow showSettingsWindow_;
    OverlayColors colors_;
    SharedScreen sharedScreen_;
    /// Null while a restart waits for the capture before to stop.
    std::shared_ptr<RegionCapture> capture_;
    std::shared_ptr<RegionEditor> editor_;
    std::shared_ptr<WebcamOverlay> webcam_;
    bool isCaptureStopping_ = false;
    /// Whether the session's lock has stopped a capture or kept one from starting.
    bool wasHeldBack_ = false;
    CaptureFailure captureFailure_;
    SharingNotice sharingNotice_;
    std::shared_ptr<RecordingControl> recording_;
    /// The setting with which the running capture was started.
    std::int64_t capturedDisplaySetting_ = 0;
    Subscription settingsObserver_;
    Subscription screensObserver_;
    Subscription lockObserver_;
    std::unique_ptr<Timer> settingsDebounce_;
    std::unique_ptr<Timer> displayCheck_;
};

} // namespace nimbrale
