#include "ui/recording_settings.h"

#include "ui/choice_row.h"
#include "ui/picker.h"
#include "ui/settings_section.h"

#include <QAbstractButton>
#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>

#include <initializer_list>
#include <utility>

namespace nimbrale {

namespace {

QString translated(const char* text)
{
    return QCoreApplication::translate("RecordingSettings", text);
}

} // namespace

RecordingSettings::RecordingSettings(AppSettings& settings, MicrophoneList microphones, RecordingFolderSource folder,
                                     QWidget* parent)
    : QWidget(parent), settings_(settings), microphones_(std::move(microphones)), folder_(std::move(folder))
{
    stackSections(*this, {makeRecordingSection(), makeQualitySection(), makeMicrophoneSection(),
                          makeSystemAudioSection(), makeFolderSection()});
}

SettingsSection* RecordingSettings::makeRecordingSection()
{
    auto* section = new SettingsSection(translated(QT_TRANSLATE_NOOP("RecordingSettings", "Recording")), new QWidget);
    section->setNote(translated(QT_TRANSLATE_NOOP(
        "RecordingSettings", "Click the record button on the yellow frame to start, and again to stop. The movie shows "
                             "exactly what a call sees: the framed area, your pointer and your webcam.")));
    return section;
}

SettingsSection* RecordingSettings::makeQualitySection()
{
    auto* row = new QWidget;
    quality_ = makeChoice(row, {translated(QT_TRANSLATE_NOOP("RecordingSettings", "Standard")),
                                translated(QT_TRANSLATE_NOOP("RecordingSettings", "High"))});
    connect(quality_, &QButtonGroup::idClicked, this,
            [this](int place) { settings_.setRecordQuality(static_cast<AppSettings::RecordingQuality>(place)); });
    qualitySection_ = new SettingsSection(translated(QT_TRANSLATE_NOOP("RecordingSettings", "&Quality")), row);
    return qualitySection_;
}

SettingsSection* RecordingSettings::makeMicrophoneSection()
{
    auto* content = new QWidget;
    recordsMicrophone_ = new QCheckBox(translated(QT_TRANSLATE_NOOP("RecordingSettings", "&Microphone")));
    connect(recordsMicrophone_, &QCheckBox::clicked, this,
            [this](bool checked) { settings_.setRecordMicrophone(checked); });
    microphone_ = makePicker(translated(QT_TRANSLATE_NOOP("RecordingSettings", "Microphone")));
    connect(microphone_, &QComboBox::activated, this, [this](int index) {
        settings_.setRecordMicrophoneID(microphone_->itemData(index).toString().toStdString());
    });
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(recordsMicrophone_);
    layout->addWidget(microphone_);
    content->setFocusProxy(recordsMicrophone_);
    return new SettingsSection(translated(QT_TRANSLATE_NOOP("RecordingSettings", "Sound")), content);
}

SettingsSection* RecordingSettings::makeSystemAudioSection()
{
    recordsSystemAudio_ = new QCheckBox(translated(QT_TRANSLATE_NOOP("RecordingSettings", "Sound from m&y Mac")));
    connect(recordsSystemAudio_, &QCheckBox::clicked, this,
            [this](bool checked) { settings_.setRecordSystemAudio(checked); });
    auto* section = new SettingsSection({}, recordsSystemAudio_);
    section->setNote(translated(QT_TRANSLATE_NOOP(
        "RecordingSettings",
        "Videos, apps and alerts you hear, mixed with your voice. Nimbrale's own sounds are left out.")));
    return section;
}

SettingsSection* RecordingSettings::makeFolderSection()
{
    auto* row = new QWidget;
    auto* symbol = new QLabel;
    const int symbolSize = style()->pixelMetric(QStyle::PM_SmallIconSize);
    symbol->setPixmap(style()->standardIcon(QStyle::SP_DirIcon).pixmap(symbolSize));
    folderName_ = new QLabel;
    folderName_->setTextFormat(Qt::PlainText);
    auto* choose = new QPushButton(translated(QT_TRANSLATE_NOOP("RecordingSettings", "C&hoose…")));
    connect(choose, &QPushButton::clicked, this, [this] { folder_.choose(); });
    useDefault_ = new QPushButton(translated(QT_TRANSLATE_NOOP("RecordingSettings", "&Use %1"))
                                      .arg(QString::fromStdString(folder_.defaultName())));
    connect(useDefault_, &QPushButton::clicked, this, [this] { settings_.setRecordFolderBookmark({}); });
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    for (QWidget* const part : std::initializer_list<QWidget*>{symbol, folderName_, choose, useDefault_})
        layout->addWidget(part);
    row->setFocusProxy(choose);
    return new SettingsSection(translated(QT_TRANSLATE_NOOP("RecordingSettings", "&Save to")), row);
}

void RecordingSettings::refresh()
{
    quality_->button(static_cast<int>(settings_.recordQuality()))->setChecked(true);
    refreshQualityNote();
    recordsMicrophone_->setChecked(settings_.recordMicrophone());
    PickerEntries entries{{translated(QT_TRANSLATE_NOOP("RecordingSettings", "Default microphone")), QString()}};
    for (const MicrophoneDevice& microphone : microphones_())
        entries.emplace_back(QString::fromStdString(microphone.name), QString::fromStdString(microphone.id));
    // One that is not plugged in leaves no entry selected.
    fillPicker(*microphone_, entries, QString::fromStdString(settings_.recordMicrophoneID()));
    microphone_->setEnabled(settings_.recordMicrophone());
    recordsSystemAudio_->setChecked(settings_.recordSystemAudio());
    folderName_->setText(QString::fromStdString(folder_.name()));
    useDefault_->setEnabled(!settings_.recordFolderBookmark().empty());
}

void RecordingSettings::refreshQualityNote()
{
    if (settings_.recordQuality() == AppSettings::RecordingQuality::standard)
        qualitySection_->setNote(
            translated(QT_TRANSLATE_NOOP("RecordingSettings", "Up to 2560 × 1440. Sharp text at a modest file size.")));
    else
        qualitySection_->setNote(translated(QT_TRANSLATE_NOOP(
            "RecordingSettings", "Up to 4K (3840 × 2160). The most detail; files are about three times as large.")));
}

} // namespace nimbrale
