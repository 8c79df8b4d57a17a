#include "app/nimbrale_app.h"

#include "app/application_icon.h"
#include "recording/recording_folder.h"
#include "share/virtual_display.h"

#include <QApplication>
#include <QColor>

#include <cstdio>
#include <utility>

namespace nimbrale {

namespace {

OverlayColors overlayColors()
{
    const QColor marker(qEnvironmentVariable("NIMBRALE_FRAME_COLOR"));
    if (!marker.isValid())
        return {};
    const Color color{marker.redF(), marker.greenF(), marker.blueF(), 1};
    return {color, color, color, color};
}

/// The frame is never put on the application's own display.
std::vector<Screen> displaysForFrame(const Screens& screens)
{
    std::vector<Screen> displays = screens.screens();
    std::erase_if(displays, [virtualDisplay = VirtualDisplay::currentDisplayID()](const Screen& screen) {
        return screen.displayID == virtualDisplay;
    });
    return displays;
}

void endWithoutDesktop(const Error& error)
{
    std::fprintf(stderr, "Nimbrale: %s\n", error.message.c_str());
    QApplication::exit(1);
}

} // namespace

NimbraleApp::NimbraleApp(Platform& platform, AppSettings& settings, std::shared_ptr<WebcamCamera> camera)
    : platform_(platform), settings_(settings), terminationSignals_([this] { platform_.workspace().terminate(); }),
      appDelegate_(AppDelegate::create(
          platform, settings, std::move(camera), [this](std::optional<EventTime> cause) { showSettingsWindow(cause); },
          overlayColors()))
{
    QApplication::setQuitOnLastWindowClosed(false);
    QApplication::setWindowIcon(applicationIcon());
    platform_.onConnectionLost = endWithoutDesktop;
    platform_.workspace().onAlertsChanged = [this](const std::vector<std::uintptr_t>& windows) {
        followAlerts(windows);
    };
}

NimbraleApp::~NimbraleApp()
{
    platform_.workspace().onAlertsChanged = nullptr;
    platform_.onConnectionLost = nullptr;
}

int NimbraleApp::run()
{
    appDelegate_->applicationWillFinishLaunching();
    return QApplication::exec();
}

void NimbraleApp::applicationWasReopened(std::optional<EventTime> cause)
{
    appDelegate_->applicationWasReopened(cause);
}

// Alerts are application-modal, and the panels are not the toolkit's to hold back.
void NimbraleApp::followAlerts(const std::vector<std::uintptr_t>& windows)
{
    platform_.panels().setInput(windows.empty() ? PanelInput::enabled : PanelInput::disabled);
    std::vector<Subscription> below;
    for (const std::uintptr_t window : windows)
        below.push_back(platform_.panels().keepBelow(window));
    panelsBelowAlerts_ = std::move(below);
}

void NimbraleApp::showSettingsWindow(std::optional<EventTime> cause)
{
    if (!settingsWindow_)
        settingsWindow_ = makeSettingsWindow();
    settingsWindow_->present();
    platform_.workspace().activate(settingsWindow_->winId(), cause);
}

std::unique_ptr<SettingsWindow> NimbraleApp::makeSettingsWindow()
{
    SettingsWindow::Sources sources;
    sources.displays = [&screens = platform_.screens()] { return displaysForFrame(screens); };
    sources.framedArea = [this] { return framedArea(); };
    sources.cameras = [&cameras = platform_.cameras()] { return cameras.devices(); };
    sources.microphones = [&microphones = platform_.microphones()] { return microphones.devices(); };
    sources.recordingFolder = recordingFolderSource();
    auto window = std::make_unique<SettingsWindow>(settings_, sources);
    window->onKeyChanged = [this, settingsWindow = window.get()](bool isKey) {
        panelsBelowSettings_ = isKey ? platform_.panels().keepBelow(settingsWindow->winId()) : nullptr;
    };
    const auto followDevices = [settingsWindow = window.get()] { settingsWindow->devicesDidChange(); };
    screensObserver_ = platform_.screens().observeChanges(followDevices);
    camerasObserver_ = platform_.cameras().observeDevices(followDevices);
    microphonesObserver_ = platform_.microphones().observeDevices(followDevices);
    recordingFolder_.onNameChange = [settingsWindow = window.get()] { settingsWindow->recordingFolderDidChange(); };
    appDelegate_->onFramedAreaChange = [settingsWindow = window.get()] { settingsWindow->framedAreaDidChange(); };
    return window;
}

RecordingFolderSource NimbraleApp::recordingFolderSource()
{
    RecordingFolderSource source;
    source.name = [this] { return recordingFolder_.name(); };
    source.defaultName = [this] { return platform_.workspace().folderName(recording_folder::defaultFolder()); };
    source.choose = [this] { recordingFolder_.choose(); };
    return source;
}

std::optional<FramedArea> NimbraleApp::framedArea() const
{
    if (!appDelegate_->sharedScreen().isActive())
        return std::nullopt;
    const RegionCapture& capture = *appDelegate_->capture();
    return FramedArea{*capture.geometry(), capture.region(), capture.pixelScale()};
}

} // namespace nimbrale
