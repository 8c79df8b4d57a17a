#pragma once

#include "tests/support/private_desktop.h"

#include <QPoint>
#include <QRect>

#include <map>
#include <memory>
#include <string>

namespace nimbrale::test {

/// The real application on a private desktop, with settings written for it beforehand.
class Application {
public:
    struct Settings {
        /// In points from the display's top-left corner, on a display without panels.
        QRect region = {100, 100, 800, 600};
        int framesPerSecond = 60;
        bool snaps = false;
        bool sharesNotifications = true;
        /// More keys of the settings file with their values.
        std::map<std::string, std::string> others = {};
    };

    /// Null, with the reason, when the program is not built or does not start. `changes` are laid over the desktop's
    /// environment.
    [[nodiscard]] static std::unique_ptr<Application> start(PrivateDesktop& desktop, const Settings& settings,
                                                            std::string& reason, const Environment& changes = {});
    /// Writes the settings that `start` starts with.
    static void writeSettings(const PrivateDesktop& desktop, const Settings& settings);
    /// Starts the program with the settings that are there.
    [[nodiscard]] static std::unique_ptr<Application> startAgain(PrivateDesktop& desktop, std::string& reason,
                                                                 const Environment& changes = {});

    [[nodiscard]] Process& process() { return *process_; }
    /// Asks it to quit: its exit code, or absent when it had to be ended.
    std::optional<int> quit();

    /// The region as it is stored now, in points from the display's top-left corner; a null rectangle while nothing is
    /// stored.
    [[nodiscard]] QRect storedRegion() const;
    [[nodiscard]] std::string storedValue(const std::string& key) const;
    /// Waits for the virtual display to have this size.
    [[nodiscard]] bool waitForVirtualDisplay(QSize pixels, Milliseconds timeout = Milliseconds{10000}) const;

    /// Where the pointer takes hold of a frame around `region`, in points as the region is.
    [[nodiscard]] static QPoint handleOf(const QRect& region);
    [[nodiscard]] static QPoint resizeButtonOf(const QRect& region);
    [[nodiscard]] static QPoint closeButtonOf(const QRect& region);
    [[nodiscard]] static QPoint settingsButtonOf(const QRect& region);
    [[nodiscard]] static QPoint recordButtonOf(const QRect& region);

private:
    Application(PrivateDesktop& desktop, std::unique_ptr<Process> process);

    PrivateDesktop& desktop_;
    std::unique_ptr<Process> process_;
};

/// `Application::start`, never null: the running test ends where it fails.
[[nodiscard]] std::unique_ptr<Application>
requireApplication(PrivateDesktop& desktop, const Application::Settings& settings, const Environment& changes = {});

} // namespace nimbrale::test
