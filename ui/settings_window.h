#pragma once

#include "settings/app_settings.h"
#include "ui/general_settings.h"

#include <QWidget>

#include <functional>

namespace nimbrale {

/// The window where the user edits the settings. Every change is stored at once; there is nothing to confirm. While it
/// is shown it follows changes made elsewhere, and what the user is typing stays. Main thread only.
class SettingsWindow final : public QWidget {
public:
    /// `settings` must outlive the window. `displays` are those that the frame can be on.
    SettingsWindow(AppSettings& settings, DisplayList displays, FramedAreaSource framedArea);

    /// The window became the one that takes the user's keys, or ceased to be.
    std::function<void(bool isKey)> onKeyChanged;

    /// Shows the window, also one that is minimized. Whether it comes to the front and has the keyboard is the
    /// workspace's to ask for.
    void present();
    /// The list of displays changed.
    void displaysDidChange();
    /// The frame was moved or resized, or the sharing began or ended.
    void framedAreaDidChange();

protected:
    void changeEvent(QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void scheduleRefresh();
    void setKey(bool isKey);

    GeneralSettings* general_;
    Subscription settingsObserver_;
    bool isRefreshScheduled_ = false;
    bool isKey_ = false;
};

} // namespace nimbrale
