#include "ui/webcam_settings.h"

#include "ui/picker.h"
#include "ui/settings_section.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QHBoxLayout>
#include <QRadioButton>

#include <initializer_list>
#include <utility>

namespace nimbrale {

namespace {

QString translated(const char* text)
{
    return QCoreApplication::translate("WebcamSettings", text);
}

/// A row of which one is chosen; their identifiers are their places, from 0 on.
QButtonGroup* makeChoice(QWidget* row, std::initializer_list<const char*> labels)
{
    auto* group = new QButtonGroup(row);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    for (const char* label : labels) {
        auto* button = new QRadioButton(translated(label));
        group->addButton(button, static_cast<int>(group->buttons().size()));
        layout->addWidget(button);
    }
    layout->addStretch();
    // The key of the row's heading leads only to what takes the focus itself.
    row->setFocusPolicy(Qt::TabFocus);
    row->setFocusProxy(group->button(0));
    QObject::connect(group, &QButtonGroup::idToggled, row, [row, group](int place, bool isChosen) {
        if (isChosen)
            row->setFocusProxy(group->button(place));
    });
    return group;
}

} // namespace

WebcamSettings::WebcamSettings(AppSettings& settings, CameraList cameras, QWidget* parent)
    : QWidget(parent), settings_(settings), cameras_(std::move(cameras))
{
    stackSections(*this, {makeWebcamSection(), makeCameraSection(), makeShapeSection(), makeBackgroundSection(),
                          makePictureSection(), makeFadeSection()});
    refresh();
}

SettingsSection* WebcamSettings::makeWebcamSection()
{
    enabled_ = new QCheckBox(translated(QT_TRANSLATE_NOOP("WebcamSettings", "Show my &webcam in the frame")));
    connect(enabled_, &QCheckBox::clicked, this, [this](bool checked) { settings_.setWebcamEnabled(checked); });
    auto* section = new SettingsSection(translated(QT_TRANSLATE_NOOP("WebcamSettings", "Webcam")), enabled_);
    section->setNote(translated(QT_TRANSLATE_NOOP(
        "WebcamSettings", "Shown inside the yellow frame, so it's part of what you share. Hover it, then drag its "
                          "handle to move it or its corner button to resize it.")));
    return section;
}

SettingsSection* WebcamSettings::makeCameraSection()
{
    camera_ = makePicker(translated(QT_TRANSLATE_NOOP("WebcamSettings", "Camera")));
    connect(camera_, &QComboBox::activated, this,
            [this](int index) { settings_.setWebcamDeviceID(camera_->itemData(index).toString().toStdString()); });
    return new SettingsSection(translated(QT_TRANSLATE_NOOP("WebcamSettings", "&Camera")), camera_);
}

SettingsSection* WebcamSettings::makeShapeSection()
{
    auto* row = new QWidget;
    shape_ = makeChoice(row, {QT_TRANSLATE_NOOP("WebcamSettings", "Rectangle"),
                              QT_TRANSLATE_NOOP("WebcamSettings", "Rounded"),
                              QT_TRANSLATE_NOOP("WebcamSettings", "Circle")});
    connect(shape_, &QButtonGroup::idClicked, this,
            [this](int place) { settings_.setWebcamShape(static_cast<AppSettings::WebcamShape>(place)); });
    return new SettingsSection(translated(QT_TRANSLATE_NOOP("WebcamSettings", "&Shape")), row);
}

SettingsSection* WebcamSettings::makeBackgroundSection()
{
    auto* row = new QWidget;
    background_ = makeChoice(row, {QT_TRANSLATE_NOOP("WebcamSettings", "Original"),
                                   QT_TRANSLATE_NOOP("WebcamSettings", "Blurred"),
                                   QT_TRANSLATE_NOOP("WebcamSettings", "Transparent")});
    connect(background_, &QButtonGroup::idClicked, this,
            [this](int place) { settings_.setWebcamBackground(static_cast<AppSettings::WebcamBackground>(place)); });
    backgroundSection_ = new SettingsSection(translated(QT_TRANSLATE_NOOP("WebcamSettings", "&Background")), row);
    return backgroundSection_;
}

SettingsSection* WebcamSettings::makePictureSection()
{
    mirrored_ = new QCheckBox(translated(QT_TRANSLATE_NOOP("WebcamSettings", "&Mirror the picture")));
    connect(mirrored_, &QCheckBox::clicked, this, [this](bool checked) { settings_.setWebcamMirrored(checked); });
    return new SettingsSection({}, mirrored_);
}

SettingsSection* WebcamSettings::makeFadeSection()
{
    fades_ = new QCheckBox(translated(QT_TRANSLATE_NOOP("WebcamSettings", "&Fade while hovering")));
    connect(fades_, &QCheckBox::clicked, this, [this](bool checked) { settings_.setWebcamFadeOnHover(checked); });
    auto* section = new SettingsSection({}, fades_);
    section->setNote(translated(QT_TRANSLATE_NOOP(
        "WebcamSettings", "Makes the webcam 80% transparent while the pointer is over it, so you can see and click "
                          "what's underneath. The buttons show either way.")));
    return section;
}

void WebcamSettings::refresh()
{
    enabled_->setChecked(settings_.webcamEnabled());
    PickerEntries entries{{translated(QT_TRANSLATE_NOOP("WebcamSettings", "Default camera")), QString()}};
    for (const CameraDevice& camera : cameras_())
        entries.emplace_back(QString::fromStdString(camera.name), QString::fromStdString(camera.id));
    // One that is not plugged in leaves no entry selected.
    fillPicker(*camera_, entries, QString::fromStdString(settings_.webcamDeviceID()));
    shape_->button(static_cast<int>(settings_.webcamShape()))->setChecked(true);
    background_->button(static_cast<int>(settings_.webcamBackground()))->setChecked(true);
    mirrored_->setChecked(settings_.webcamMirrored());
    fades_->setChecked(settings_.webcamFadeOnHover());
    refreshBackgroundNote();
}

void WebcamSettings::refreshBackgroundNote()
{
    switch (settings_.webcamBackground()) {
    case AppSettings::WebcamBackground::original:
        backgroundSection_->setNote({});
        return;
    case AppSettings::WebcamBackground::blurred:
        backgroundSection_->setNote(translated(QT_TRANSLATE_NOOP(
            "WebcamSettings", "Nimbrale finds you in the picture and blurs everything behind you. This takes extra "
                              "processing, most noticeably on Intel Macs.")));
        return;
    case AppSettings::WebcamBackground::transparent:
        break;
    }
    backgroundSection_->setNote(translated(QT_TRANSLATE_NOOP(
        "WebcamSettings", "Nimbrale finds you in the picture and removes everything behind you. This takes extra "
                          "processing, most noticeably on Intel Macs.")));
}

} // namespace nimbrale
