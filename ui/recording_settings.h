#pragma once

#include "platform/audio_sources.h"
#include "settings/app_settings.h"

#include <QWidget>

#include <functional>
#include <string>
#include <vector>

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;

namespace nimbrale {

class SettingsSection;

/// The microphones that can be chosen, in the system's order.
using MicrophoneList = std::function<std::vector<MicrophoneDevice>()>;

/// The folder that recordings go to, as the user knows it, and the way to another one.
struct RecordingFolderSource {
    /// Of the folder in use; UTF-8.
    std::function<std::string()> name;
    /// Of the default folder; UTF-8.
    std::function<std::string()> defaultName;
    /// Lets the user choose another folder, which is stored.
    std::function<void()> choose;
};

/// The controls for recordings, each bound to its setting: a change is stored at once, and changes made elsewhere show
/// with `refresh`.
class RecordingSettings final : public QWidget {
public:
    /// `settings` must outlive the widget.
    RecordingSettings(AppSettings& settings, MicrophoneList microphones, RecordingFolderSource folder,
                      QWidget* parent = nullptr);

    /// Shows what the settings hold and which microphones there are now. Writes nothing.
    void refresh();

private:
    [[nodiscard]] SettingsSection* makeRecordingSection();
    [[nodiscard]] SettingsSection* makeQualitySection();
    [[nodiscard]] SettingsSection* makeMicrophoneSection();
    [[nodiscard]] SettingsSection* makeSystemAudioSection();
    [[nodiscard]] SettingsSection* makeFolderSection();
    void refreshQualityNote();

    AppSettings& settings_;
    MicrophoneList microphones_;
    RecordingFolderSource folder_;
    QButtonGroup* quality_ = nullptr;
    SettingsSection* qualitySection_ = nullptr;
    QCheckBox* recordsMicrophone_ = nullptr;
    QComboBox* microphone_ = nullptr;
    QCheckBox* recordsSystemAudio_ = nullptr;
    QLabel* folderName_ = nullptr;
    QPushButton* useDefault_ = nullptr;
};

} // namespace nimbrale
