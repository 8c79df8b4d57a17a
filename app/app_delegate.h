#pragma once

#include "controls/overlay_colors.h"
#include "platform/platform.h"
#include "region/region_editor.h"
#include "settings/app_settings.h"
#include "share/region_capture.h"
#include "share/shared_screen.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace nimbrale {

/// Owns and wires the long-lived parts: the capture of the framed area, the screen that shows it and the frame that
/// the user drags. Builds this chain at the start and anew when the frame's display changes. Main thread only.
class AppDelegate : public std::enable_shared_from_this<AppDelegate> {
public:
    /// Everything given must outlive the object. `showSettingsWindow` brings the Settings window to the front.
    [[nodiscard]] static std::shared_ptr<AppDelegate> create(Platform& platform, AppSettings& settings,
                                                             std::function<void()> showSettingsWindow,
                                                             const OverlayColors& colors = {});
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    /// The whole start-up: follows the displays and the settings and starts the capture. Call once.
    void applicationWillFinishLaunching();
    /// Asked once, whoever wants the application to quit, before it does.
    [[nodiscard]] TerminateReply applicationShouldTerminate();
    /// Makes the application the active one and shows its Settings window on the tab it showed last.
    void openSettings();
    /// The displays changed; half a second after the last such call the frame's display is checked.
    void screensDidChange();
    /// Restarts the capture where the frame's display has gone, or has another frame or scale, and puts the frame in
    /// its place otherwise. A capture that failed waits for the user's answer instead.
    void checkCapturedDisplay();

    /// The capture under way, and the frame once that capture has started; null while there is none.
    [[nodiscard]] const std::shared_ptr<RegionCapture>& capture() const { return capture_; }
    [[nodiscard]] const std::shared_ptr<RegionEditor>& editor() const { return editor_; }
    [[nodiscard]] const SharedScreen& sharedScreen() const { return sharedScreen_; }
    [[nodiscard]] bool isRestarting() const { return isRestarting_; }

private:
    AppDelegate(Platform& platform, AppSettings& settings, std::function<void()> showSettingsWindow,
                const OverlayColors& colors);

    void startCaptureChain();
    void startCapture(const std::shared_ptr<RegionCapture>& capture, std::optional<Result<ShareableContent>> content);
    void captureStarted(const Result<void>& result);
    void createEditor();
    void restartCaptureChain();
    void continueRestart();

    [[nodiscard]] bool followsChanges() const;
    void settingsWillChange();
    void settingsDidChange();
    void followRegion();
    void moveToDisplay(DisplayID displayID, const DisplayGeometry& geometry, const Rect& region);

    void showCaptureAlert(const Error& error);
    void answerCaptureAlert(bool isPermissionMissing, int button);
    void tellLimitationsOnce();

    Platform& platform_;
    AppSettings& settings_;
    std::function<void()> showSettingsWindow_;
    OverlayColors colors_;
    SharedScreen sharedScreen_;
    std::shared_ptr<RegionCapture> capture_;
    std::shared_ptr<RegionEditor> editor_;
    bool isRestarting_ = false;
    bool isCaptureAlertOpen_ = false;
    bool hasToldLimitations_ = false;
    /// The setting with which the running capture was started.
    std::int64_t capturedDisplaySetting_ = 0;
    Subscription settingsObserver_;
    Subscription screensObserver_;
    std::unique_ptr<Timer> settingsDebounce_;
    std::unique_ptr<Timer> displayCheck_;
};

} // namespace nimbrale
