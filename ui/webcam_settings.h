#pragma once

#include "platform/cameras.h"
#include "settings/app_settings.h"

#include <QWidget>

#include <functional>
#include <vector>

class QButtonGroup;
class QCheckBox;
class QComboBox;

namespace nimbrale {

class SettingsSection;

/// The cameras that can be chosen, in the system's order.
using CameraList = std::function<std::vector<CameraDevice>()>;

/// The controls for the webcam in the frame, each bound to its setting: a change is stored at once, and changes made
/// elsewhere show with `refresh`.
class WebcamSettings final : public QWidget {
public:
    /// `settings` must outlive the widget.
    WebcamSettings(AppSettings& settings, CameraList cameras, QWidget* parent = nullptr);

    /// Shows what the settings hold and which cameras there are now. Writes nothing.
    void refresh();

private:
    [[nodiscard]] SettingsSection* makeWebcamSection();
    [[nodiscard]] SettingsSection* makeCameraSection();
    [[nodiscard]] SettingsSection* makeShapeSection();
    [[nodiscard]] SettingsSection* makeBackgroundSection();
    [[nodiscard]] SettingsSection* makePictureSection();
    [[nodiscard]] SettingsSection* makeFadeSection();
    void refreshBackgroundNote();

    AppSettings& settings_;
    CameraList cameras_;
    QCheckBox* enabled_ = nullptr;
    QComboBox* camera_ = nullptr;
    QButtonGroup* shape_ = nullptr;
    QButtonGroup* background_ = nullptr;
    SettingsSection* backgroundSection_ = nullptr;
    QCheckBox* mirrored_ = nullptr;
    QCheckBox* fades_ = nullptr;
};

} // namespace nimbrale
