#include "tests/support/application.h"

#include "tests/support/requirements.h"

#include <csignal>
#include <fstream>

namespace nimbrale::test {

namespace {

constexpr Milliseconds quitPatience{5000};
/// The stored top is counted from one point below the menu bar, which a display without panels does not have.
constexpr int storedTopOffset = 1;

std::filesystem::path settingsFile(const PrivateDesktop& desktop)
{
    return desktop.configFolder() / "Nimbrale" / "Nimbrale.conf";
}

const char* text(bool value)
{
    return value ? "true" : "false";
}

} // namespace

Application::Application(PrivateDesktop& desktop, std::unique_ptr<Process> process)
    : desktop_(desktop), process_(std::move(process))
{}

void Application::writeSettings(const PrivateDesktop& desktop, const Settings& settings)
{
    const std::filesystem::path file = settingsFile(desktop);
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file);
    stream << "[General]\nsettingsLeft=" << settings.region.x()
           << "\nsettingsTop=" << settings.region.y() - storedTopOffset << "\nsettingsWidth=" << settings.region.width()
           << "\nsettingsHeight=" << settings.region.height()
           << "\nsettingsDisplayID=0\nsettingsSnapping=" << text(settings.snaps)
           << "\nshareNotifications=" << text(settings.sharesNotifications)
           << "\nsettingsFramerate=" << settings.framesPerSecond << "\nshowWelcomeAtLaunch=false\n";
    for (const auto& [key, value] : settings.others)
        stream << key << "=" << value << "\n";
}

std::unique_ptr<Application> Application::start(PrivateDesktop& desktop, const Settings& settings, std::string& reason,
                                                const Environment& changes)
{
    writeSettings(desktop, settings);
    return startAgain(desktop, reason, changes);
}

std::unique_ptr<Application> Application::startAgain(PrivateDesktop& desktop, std::string& reason,
                                                     const Environment& changes)
{
    std::unique_ptr<Process> process = desktop.spawn((buildFolder() / "nimbrale").string(), {}, changes);
    if (!process) {
        reason = "the application is not built";
        return nullptr;
    }
    return std::unique_ptr<Application>(new Application(desktop, std::move(process)));
}

std::optional<int> Application::quit()
{
    process_->signal(SIGTERM);
    const std::optional<int> code = process_->waitForEnd(quitPatience);
    if (!code)
        process_->terminate();
    return code;
}

std::string Application::storedValue(const std::string& key) const
{
    std::ifstream file(settingsFile(desktop_));
    for (std::string line; std::getline(file, line);) {
        if (line.rfind(key + "=", 0) == 0)
            return line.substr(key.size() + 1);
    }
    return {};
}

QRect Application::storedRegion() const
{
    const std::string left = storedValue("settingsLeft");
    const std::string top = storedValue("settingsTop");
    const std::string width = storedValue("settingsWidth");
    const std::string height = storedValue("settingsHeight");
    if (left.empty() || top.empty() || width.empty() || height.empty())
        return {};
    return {std::stoi(left), std::stoi(top) + storedTopOffset, std::stoi(width), std::stoi(height)};
}

bool Application::waitForVirtualDisplay(QSize pixels, Milliseconds timeout) const
{
    return waitUntil(
        [&] {
            const auto monitor = desktop_.monitorNamed("Nimbrale");
            return monitor && monitor->geometry.size() == pixels;
        },
        timeout);
}

QPoint Application::handleOf(const QRect& region)
{
    return {region.x() + region.width() / 2, region.y() - 2};
}

QPoint Application::resizeButtonOf(const QRect& region)
{
    return {region.x() + region.width() + 2, region.y() + region.height() + 2};
}

QPoint Application::closeButtonOf(const QRect& region)
{
    return {region.x() + region.width() + 2, region.y() - 2};
}

QPoint Application::settingsButtonOf(const QRect& region)
{
    return closeButtonOf(region) + QPoint(0, 28);
}

QPoint Application::recordButtonOf(const QRect& region)
{
    return settingsButtonOf(region) + QPoint(0, 28);
}

std::unique_ptr<Application> requireApplication(PrivateDesktop& desktop, const Application::Settings& settings,
                                                const Environment& changes)
{
    std::string reason;
    std::unique_ptr<Application> application = Application::start(desktop, settings, reason, changes);
    if (!application)
        failTest(reason);
    return application;
}

} // namespace nimbrale::test
