#pragma once

#include "settings/app_settings.h"
#include "ui/general_settings.h"
#include "ui/recording_settings.h"
#include "ui/webcam_settings.h"

#include <QWidget>

#include <functional>

class QTabWidget;

namespace nimbrale {

/// The window where the user edits the settings, on a tab for each of their kinds. Every change is stored at once;
/// there is nothing to confirm. While it is shown it follows changes made elsewhere, and what the user is typing stays.
/// Main thread only.
class SettingsWindow final : public QWidget {
public:
    struct Sources {
        /// Those that the frame can be on.
        DisplayList displays;
        FramedAreaSource framedArea;
        CameraList cameras;
        MicrophoneList microphones;
        RecordingFolderSource recordingFolder;
    };

    /// `settings` must outlive the window.
    SettingsWindow(AppSettings& settings, const Sources& sources);

    /// The window became the one that takes the user's keys, or ceased to be.
    std::function<void(bool isKey)> onKeyChanged;

    /// Shows the window, also one that is minimized. Whether it comes to the front and has the keyboard is the
    /// workspace's to ask for.
    void present();
    /// The list of displays, cameras or microphones changed.
    void devicesDidChange();
    /// The folder for recordings has another name.
    void recordingFolderDidChange();
    /// The frame was moved or resized, or the sharing began or ended.
    void framedAreaDidChange();

protected:
    void changeEvent(QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void addTab(QWidget* page, const QString& title);
    void scheduleRefresh();
    void refresh();
    void setKey(bool isKey);

    AppSettings& settings_;
    QTabWidget* tabs_;
    GeneralSettings* general_;
    WebcamSettings* webcam_;
    RecordingSettings* recording_;
    Subscription settingsObserver_;
    bool isRefreshScheduled_ = false;
    bool isKey_ = false;
};

} // namespace nimbrale
