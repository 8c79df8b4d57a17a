#pragma once

#include "app/app_delegate.h"
#include "app/recording_folder_choice.h"
#include "app/termination_signals.h"
#include "platform/platform.h"
#include "ui/settings_window.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace nimbrale {

/// The running application: makes the delegate and the Settings window and ends in order when it is asked to, by the
/// user or by a signal, so that the desktop is left as it was. Main thread only.
///
/// A testing aid: the environment variable NIMBRALE_FRAME_COLOR=#rrggbb paints the whole frame in that color, so that
/// a test which looks for own windows in a shared picture knows what to look for.
class NimbraleApp {
public:
    /// `platform` and `settings` must outlive it. The toolkit's application object must exist.
    NimbraleApp(Platform& platform, AppSettings& settings, std::shared_ptr<WebcamCamera> camera);
    ~NimbraleApp();
    NimbraleApp(const NimbraleApp&) = delete;
    NimbraleApp& operator=(const NimbraleApp&) = delete;

    /// Starts up and runs the event loop until the application quits; the exit code, which is 1 when the connection to
    /// the desktop was lost.
    [[nodiscard]] int run();
    /// The user started the application once more, at `cause` or just now.
    void applicationWasReopened(std::optional<EventTime> cause);
    /// Starts a recording of the shared screen, or ends it.
    void toggleRecording() { appDelegate_->toggleRecording(); }
    /// Whether it has been asked to quit and is ending or deciding.
    [[nodiscard]] bool isEnding() const { return platform_.workspace().isTerminating(); }

private:
    void showSettingsWindow(std::optional<EventTime> cause);
    void followAlerts(const std::vector<std::uintptr_t>& windows);
    [[nodiscard]] std::unique_ptr<SettingsWindow> makeSettingsWindow();
    [[nodiscard]] std::optional<FramedArea> framedArea() const;
    [[nodiscard]] RecordingFolderSource recordingFolderSource();

    Platform& platform_;
    AppSettings& settings_;
    /// Goes last: until the rest has put the desktop in order, another signal must not end the process.
    TerminationSignals terminationSignals_;
    std::unique_ptr<SettingsWindow> settingsWindow_;
    std::shared_ptr<AppDelegate> appDelegate_;
    Subscription screensObserver_;
    Subscription camerasObserver_;
    Subscription microphonesObserver_;
    RecordingFolderChoice recordingFolder_{platform_, settings_};
    /// While the settings window is key.
    Subscription panelsBelowSettings_;
    std::vector<Subscription> panelsBelowAlerts_;
};

} // namespace nimbrale
