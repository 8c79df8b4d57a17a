#include "settings/app_settings.h"

#include "settings/app_settings_store.h"

#include <QStandardPaths>

#include <array>
#include <string_view>
#include <utility>

namespace nimbrale {

namespace {

/// Each case of an enumeration with the string that stands for it in the file.
template <typename Enum, std::size_t count>
using CaseNames = std::array<std::pair<Enum, std::string_view>, count>;

constexpr CaseNames<AppSettings::WebcamShape, 3> webcamShapeNames{{
    {AppSettings::WebcamShape::rectangle, "rectangle"},
    {AppSettings::WebcamShape::rounded, "rounded"},
    {AppSettings::WebcamShape::circle, "circle"},
}};

constexpr CaseNames<AppSettings::WebcamBackground, 3> webcamBackgroundNames{{
    {AppSettings::WebcamBackground::original, "original"},
    {AppSettings::WebcamBackground::blurred, "blurred"},
    {AppSettings::WebcamBackground::transparent, "transparent"},
}};

constexpr CaseNames<AppSettings::RecordingQuality, 2> recordQualityNames{{
    {AppSettings::RecordingQuality::standard, "standard"},
    {AppSettings::RecordingQuality::high, "high"},
}};

constexpr CaseNames<AppSettings::SettingsTab, 3> settingsTabNames{{
    {AppSettings::SettingsTab::general, "general"},
    {AppSettings::SettingsTab::webcam, "webcam"},
    {AppSettings::SettingsTab::recording, "recording"},
}};

template <typename Enum, std::size_t count>
Enum caseOf(const CaseNames<Enum, count>& names, const std::optional<std::string>& stored, Enum defaultCase)
{
    for (const auto& [value, name] : names) {
        if (stored == name)
            return value;
    }
    return defaultCase;
}

template <typename Enum, std::size_t count>
std::string nameOf(const CaseNames<Enum, count>& names, Enum wanted)
{
    for (const auto& [value, name] : names) {
        if (value == wanted)
            return std::string(name);
    }
    return {};
}

std::string pathOfUserSettings()
{
    const QString directory = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return directory.toStdString() + "/Nimbrale/Nimbrale.conf";
}

} // namespace

AppSettings& AppSettings::shared()
{
    static AppSettings* const instance = new AppSettings(pathOfUserSettings());
    return *instance;
}

AppSettings::AppSettings(const std::string& filePath) : store_(std::make_unique<SettingsStore>(filePath)) {}

AppSettings::~AppSettings() = default;

Subscription AppSettings::observeChanges(std::function<void()> observer)
{
    return observers_.add(std::move(observer));
}

std::int64_t AppSettings::left() const
{
    return store_->integer("settingsLeft").value_or(0);
}

void AppSettings::setLeft(std::int64_t left)
{
    observers_.notify();
    store_->setInteger("settingsLeft", left);
}

std::int64_t AppSettings::top() const
{
    return store_->integer("settingsTop").value_or(0);
}

void AppSettings::setTop(std::int64_t top)
{
    observers_.notify();
    store_->setInteger("settingsTop", top);
}

std::int64_t AppSettings::width() const
{
    return store_->integer("settingsWidth").value_or(800);
}

void AppSettings::setWidth(std::int64_t width)
{
    observers_.notify();
    store_->setInteger("settingsWidth", width);
}

std::int64_t AppSettings::height() const
{
    return store_->integer("settingsHeight").value_or(600);
}

void AppSettings::setHeight(std::int64_t height)
{
    observers_.notify();
    store_->setInteger("settingsHeight", height);
}

std::int64_t AppSettings::displayID() const
{
    return store_->integer("settingsDisplayID").value_or(0);
}

void AppSettings::setDisplayID(std::int64_t displayID)
{
    observers_.notify();
    store_->setInteger("settingsDisplayID", displayID);
}

bool AppSettings::snappingEnabled() const
{
    return store_->boolean("settingsSnapping").value_or(true);
}

void AppSettings::setSnappingEnabled(bool enabled)
{
    observers_.notify();
    store_->setBoolean("settingsSnapping", enabled);
}

bool AppSettings::shareNotifications() const
{
    return store_->boolean("shareNotifications").value_or(true);
}

void AppSettings::setShareNotifications(bool share)
{
    observers_.notify();
    store_->setBoolean("shareNotifications", share);
}

std::int64_t AppSettings::framerate() const
{
    return store_->integer("settingsFramerate").value_or(30);
}

void AppSettings::setFramerate(std::int64_t framerate)
{
    observers_.notify();
    store_->setInteger("settingsFramerate", framerate);
}

bool AppSettings::showWelcomeAtLaunch() const
{
    return store_->boolean("showWelcomeAtLaunch").value_or(true);
}

void AppSettings::setShowWelcomeAtLaunch(bool show)
{
    observers_.notify();
    store_->setBoolean("showWelcomeAtLaunch", show);
}

bool AppSettings::webcamEnabled() const
{
    return store_->boolean("webcamEnabled").value_or(false);
}

void AppSettings::setWebcamEnabled(bool enabled)
{
    observers_.notify();
    store_->setBoolean("webcamEnabled", enabled);
}

std::string AppSettings::webcamDeviceID() const
{
    return store_->text("webcamDeviceID").value_or(std::string());
}

void AppSettings::setWebcamDeviceID(const std::string& deviceID)
{
    observers_.notify();
    store_->setText("webcamDeviceID", deviceID);
}

AppSettings::WebcamShape AppSettings::webcamShape() const
{
    return caseOf(webcamShapeNames, store_->text("webcamShape"), WebcamShape::rounded);
}

void AppSettings::setWebcamShape(WebcamShape shape)
{
    observers_.notify();
    store_->setText("webcamShape", nameOf(webcamShapeNames, shape));
}

AppSettings::WebcamBackground AppSettings::webcamBackground() const
{
    return caseOf(webcamBackgroundNames, store_->text("webcamBackground"), WebcamBackground::original);
}

void AppSettings::setWebcamBackground(WebcamBackground background)
{
    observers_.notify();
    store_->setText("webcamBackground", nameOf(webcamBackgroundNames, background));
}

bool AppSettings::webcamMirrored() const
{
    return store_->boolean("webcamMirrored").value_or(true);
}

void AppSettings::setWebcamMirrored(bool mirrored)
{
    observers_.notify();
    store_->setBoolean("webcamMirrored", mirrored);
}

bool AppSettings::webcamFadeOnHover() const
{
    return store_->boolean("webcamFadeOnHover").value_or(true);
}

void AppSettings::setWebcamFadeOnHover(bool fades)
{
    observers_.notify();
    store_->setBoolean("webcamFadeOnHover", fades);
}

double AppSettings::webcamX() const
{
    return store_->number("webcamX").value_or(-1.0);
}

void AppSettings::setWebcamX(double x)
{
    observers_.notify();
    store_->setNumber("webcamX", x);
}

double AppSettings::webcamY() const
{
    return store_->number("webcamY").value_or(-1.0);
}

void AppSettings::setWebcamY(double y)
{
    observers_.notify();
    store_->setNumber("webcamY", y);
}

double AppSettings::webcamWidth() const
{
    return store_->number("webcamWidth").value_or(320.0);
}

void AppSettings::setWebcamWidth(double width)
{
    observers_.notify();
    store_->setNumber("webcamWidth", width);
}

double AppSettings::webcamHeight() const
{
    return store_->number("webcamHeight").value_or(180.0);
}

void AppSettings::setWebcamHeight(double height)
{
    observers_.notify();
    store_->setNumber("webcamHeight", height);
}

bool AppSettings::recordMicrophone() const
{
    return store_->boolean("recordMicrophone").value_or(true);
}

void AppSettings::setRecordMicrophone(bool record)
{
    observers_.notify();
    store_->setBoolean("recordMicrophone", record);
}

std::string AppSettings::recordMicrophoneID() const
{
    return store_->text("recordMicrophoneID").value_or(std::string());
}

void AppSettings::setRecordMicrophoneID(const std::string& microphoneID)
{
    observers_.notify();
    store_->setText("recordMicrophoneID", microphoneID);
}

bool AppSettings::recordSystemAudio() const
{
    return store_->boolean("recordSystemAudio").value_or(false);
}

void AppSettings::setRecordSystemAudio(bool record)
{
    observers_.notify();
    store_->setBoolean("recordSystemAudio", record);
}

AppSettings::RecordingQuality AppSettings::recordQuality() const
{
    return caseOf(recordQualityNames, store_->text("recordQuality"), RecordingQuality::standard);
}

void AppSettings::setRecordQuality(RecordingQuality quality)
{
    observers_.notify();
    store_->setText("recordQuality", nameOf(recordQualityNames, quality));
}

std::vector<std::byte> AppSettings::recordFolderBookmark() const
{
    return store_->bytes("recordFolder").value_or(std::vector<std::byte>());
}

void AppSettings::setRecordFolderBookmark(const std::vector<std::byte>& bookmark)
{
    observers_.notify();
    store_->setBytes("recordFolder", bookmark);
}

AppSettings::SettingsTab AppSettings::settingsTab() const
{
    return caseOf(settingsTabNames, store_->text("settingsTab"), SettingsTab::general);
}

void AppSettings::setSettingsTab(SettingsTab tab)
{
    observers_.notify();
    store_->setText("settingsTab", nameOf(settingsTabNames, tab));
}

bool AppSettings::hasRequestedScreenCaptureAccess() const
{
    return store_->boolean("requestedScreenCaptureAccess").value_or(false);
}

void AppSettings::setHasRequestedScreenCaptureAccess(bool requested)
{
    observers_.notify();
    store_->setBoolean("requestedScreenCaptureAccess", requested);
}

} // namespace nimbrale
