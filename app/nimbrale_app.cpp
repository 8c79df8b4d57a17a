#include "app/nimbrale_app.h"

#include "share/virtual_display.h"

#include <QApplication>
#include <QColor>

#include <cstdio>

namespace nimbrale {

namespace {

OverlayColors overlayColors()
{
    const QColor marker(qEnvironmentVariable("NIMBRALE_FRAME_COLOR"));
    if (!marker.isValid())
        return {};
    const Color color{marker.redF(), marker.greenF(), marker.blueF(), 1};
    return {color, color, color};
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

NimbraleApp::NimbraleApp(Platform& platform, AppSettings& settings)
    : platform_(platform), settings_(settings), terminationSignals_([this] { platform_.workspace().terminate(); }),
      appDelegate_(AppDelegate::create(
          platform, settings, [this] { showSettingsWindow(); }, overlayColors()))
{
    QApplication::setQuitOnLastWindowClosed(false);
    platform_.onConnectionLost = endWithoutDesktop;
}

NimbraleApp::~NimbraleApp()
{
    platform_.onConnectionLost = nullptr;
}

int NimbraleApp::run()
{
    appDelegate_->applicationWillFinishLaunching();
    return QApplication::exec();
}

void NimbraleApp::openSettings()
{
    appDelegate_->openSettings();
}

void NimbraleApp::showSettingsWindow()
{
    if (!settingsWindow_)
        settingsWindow_ = makeSettingsWindow();
    settingsWindow_->present();
}

std::unique_ptr<SettingsWindow> NimbraleApp::makeSettingsWindow()
{
    auto window = std::make_unique<SettingsWindow>(
        settings_, [&screens = platform_.screens()] { return displaysForFrame(screens); });
    window->onKeyChanged = [this, settingsWindow = window.get()](bool isKey) {
        panelsBelowSettings_ = isKey ? platform_.panels().keepBelow(settingsWindow->winId()) : nullptr;
    };
    screensObserver_ =
        platform_.screens().observeChanges([settingsWindow = window.get()] { settingsWindow->displaysDidChange(); });
    return window;
}

} // namespace nimbrale
