#include "ui/general_settings.h"

#include "geometry/picture_size.h"
#include "ui/number_field.h"
#include "ui/picker.h"
#include "ui/secondary_label.h"
#include "ui/settings_section.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSpinBox>

#include <algorithm>
#include <utility>

namespace nimbrale {

namespace {

constexpr int fieldSpacing = 16;
constexpr int largestFramerate = 120;

QString translated(const char* text)
{
    return QCoreApplication::translate("GeneralSettings", text);
}

QWidget* makeRow(QWidget* first, QWidget* second)
{
    auto* row = new QWidget;
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(fieldSpacing);
    layout->addWidget(first);
    layout->addWidget(second);
    row->setFocusProxy(first);
    return row;
}

} // namespace

GeneralSettings::GeneralSettings(AppSettings& settings, DisplayList displays, FramedAreaSource framedArea,
                                 QWidget* parent)
    : QWidget(parent), settings_(settings), displays_(std::move(displays)), framedArea_(std::move(framedArea))
{
    stackSections(*this, {makeDisplaySection(), makePositionSection(), makeDimensionsSection(),
                          makePerformanceSection(), makeSnappingSection(), makeNotificationsSection()});
    NumberField::align(*left_, *width_);
    NumberField::align(*top_, *height_);
    refresh();
}

SettingsSection* GeneralSettings::makeDisplaySection()
{
    display_ = makePicker(translated(QT_TRANSLATE_NOOP("GeneralSettings", "Display")));
    connect(display_, &QComboBox::activated, this,
            [this](int index) { settings_.setDisplayID(display_->itemData(index).toLongLong()); });
    auto* section = new SettingsSection(translated(QT_TRANSLATE_NOOP("GeneralSettings", "&Display")), display_);
    section->setNote(translated(
        QT_TRANSLATE_NOOP("GeneralSettings", "Position is relative to this display. You can also drag the yellow frame "
                                             "to move or resize it.")));
    return section;
}

NumberField* GeneralSettings::makeNumberField(const char* label, const char* name, std::int64_t StoredRegion::*side,
                                              std::function<void(std::int64_t)> store)
{
    auto* field =
        new NumberField(translated(label), translated(name), translated(QT_TRANSLATE_NOOP("GeneralSettings", "px")));
    field->edit().onCommit = std::move(store);
    field->edit().nearestStep = [this, side](std::int64_t wanted) { return nearestAllowed(side, wanted); };
    return field;
}

std::int64_t GeneralSettings::nearestAllowed(std::int64_t StoredRegion::*side, std::int64_t wanted) const
{
    const std::optional<FramedArea> area = framedArea_();
    if (!area)
        return wanted;
    StoredRegion region{settings_.left(), settings_.top(), settings_.width(), settings_.height()};
    region.*side = wanted;
    return area->display.storedFromRegion(area->display.regionFromStored(region)).*side;
}

SettingsSection* GeneralSettings::makePositionSection()
{
    left_ = makeNumberField(QT_TRANSLATE_NOOP("GeneralSettings", "&Left"), QT_TRANSLATE_NOOP("GeneralSettings", "Left"),
                            &StoredRegion::left, [this](std::int64_t value) { settings_.setLeft(value); });
    top_ = makeNumberField(QT_TRANSLATE_NOOP("GeneralSettings", "&Top"), QT_TRANSLATE_NOOP("GeneralSettings", "Top"),
                           &StoredRegion::top, [this](std::int64_t value) { settings_.setTop(value); });
    return new SettingsSection(translated(QT_TRANSLATE_NOOP("GeneralSettings", "Position")), makeRow(left_, top_));
}

SettingsSection* GeneralSettings::makeDimensionsSection()
{
    width_ =
        makeNumberField(QT_TRANSLATE_NOOP("GeneralSettings", "&Width"), QT_TRANSLATE_NOOP("GeneralSettings", "Width"),
                        &StoredRegion::width, [this](std::int64_t value) { settings_.setWidth(value); });
    height_ =
        makeNumberField(QT_TRANSLATE_NOOP("GeneralSettings", "&Height"), QT_TRANSLATE_NOOP("GeneralSettings", "Height"),
                        &StoredRegion::height, [this](std::int64_t value) { settings_.setHeight(value); });
    dimensionsSection_ =
        new SettingsSection(translated(QT_TRANSLATE_NOOP("GeneralSettings", "Dimensions")), makeRow(width_, height_));
    return dimensionsSection_;
}

SettingsSection* GeneralSettings::makePerformanceSection()
{
    auto* row = new QWidget;
    auto* label = new QLabel(translated(QT_TRANSLATE_NOOP("GeneralSettings", "&Framerate")), row);
    framerate_ = new QSpinBox(row);
    framerate_->setRange(1, largestFramerate);
    framerate_->setKeyboardTracking(false); // A half-typed number is not stored.
    framerate_->setAccessibleName(translated(QT_TRANSLATE_NOOP("GeneralSettings", "Framerate")));
    label->setBuddy(framerate_);
    connect(framerate_, &QSpinBox::valueChanged, this, [this](int value) { settings_.setFramerate(value); });
    auto* largest = new SecondaryLabel(
        translated(QT_TRANSLATE_NOOP("GeneralSettings", "Max: ")) + QString::number(largestFramerate), row);

    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(label);
    layout->addWidget(framerate_);
    layout->addWidget(largest);
    return new SettingsSection(translated(QT_TRANSLATE_NOOP("GeneralSettings", "Performance")), row);
}

SettingsSection* GeneralSettings::makeSnappingSection()
{
    snapping_ = new QCheckBox(
        translated(QT_TRANSLATE_NOOP("GeneralSettings", "&Snap to halves, thirds and quarters of the screen")));
    connect(snapping_, &QCheckBox::clicked, this, [this](bool checked) { settings_.setSnappingEnabled(checked); });
    snappingSection_ = new SettingsSection(translated(QT_TRANSLATE_NOOP("GeneralSettings", "Snapping")), snapping_);
    return snappingSection_;
}

SettingsSection* GeneralSettings::makeNotificationsSection()
{
    notifications_ =
        new QCheckBox(translated(QT_TRANSLATE_NOOP("GeneralSettings", "Show &notifications in the share")));
    connect(notifications_, &QCheckBox::clicked, this,
            [this](bool checked) { settings_.setShareNotifications(checked); });
    notificationsSection_ =
        new SettingsSection(translated(QT_TRANSLATE_NOOP("GeneralSettings", "Notifications")), notifications_);
    return notificationsSection_;
}

void GeneralSettings::refresh()
{
    refreshDisplays();
    left_->edit().setValue(settings_.left());
    top_->edit().setValue(settings_.top());
    width_->edit().setValue(settings_.width());
    height_->edit().setValue(settings_.height());
    refreshSharedSize();
    const std::int64_t framerate = std::clamp<std::int64_t>(settings_.framerate(), 1, largestFramerate);
    if (framerate_->value() != framerate) {
        const QSignalBlocker blocker(framerate_);
        framerate_->setValue(static_cast<int>(framerate));
    }
    snapping_->setChecked(settings_.snappingEnabled());
    notifications_->setChecked(settings_.shareNotifications());
    refreshNotes();
}

void GeneralSettings::refreshSharedSize()
{
    const std::optional<FramedArea> area = framedArea_();
    if (!area || area->pixelScale == 1) {
        dimensionsSection_->setNote({});
        return;
    }
    const PixelSize picture = pictureSize(area->region.size(), area->pixelScale);
    dimensionsSection_->setNote(translated(QT_TRANSLATE_NOOP("GeneralSettings", "Shared: %1 × %2 pixels"))
                                    .arg(picture.width)
                                    .arg(picture.height));
}

void GeneralSettings::refreshDisplays()
{
    PickerEntries entries{{translated(QT_TRANSLATE_NOOP("GeneralSettings", "Main display")), qlonglong{0}}};
    for (const Screen& screen : displays_())
        entries.emplace_back(QString::fromStdString(screen.name), qlonglong{screen.displayID});
    // A display that is not connected leaves no entry selected.
    fillPicker(*display_, entries, static_cast<qlonglong>(settings_.displayID()));
}

void GeneralSettings::refreshNotes()
{
    snappingSection_->setNote(
        snapping_->isChecked()
            ? translated(QT_TRANSLATE_NOOP("GeneralSettings", "Hold ⌘ while dragging to disable snapping temporarily."))
            : translated(
                  QT_TRANSLATE_NOOP("GeneralSettings", "Hold ⌘ while dragging to enable snapping temporarily.")));
    notificationsSection_->setNote(
        notifications_->isChecked()
            ? translated(QT_TRANSLATE_NOOP("GeneralSettings",
                                           "Notification banners that appear inside the frame are shared, too."))
            : translated(QT_TRANSLATE_NOOP("GeneralSettings", "Notification banners are left out of what you share, "
                                                              "even inside the frame.")));
}

} // namespace nimbrale
