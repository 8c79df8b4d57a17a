#pragma once

#include "tests/support/desktop_recipe.h"
#include "tests/support/private_desktop.h"

#include <memory>
#include <string>
#include <vector>

namespace nimbrale::test {

/// A whole desktop on a private X server, as a user has it who has just logged in: its session manager with what that
/// starts, buses of its own, a wallpaper that the test knows, four workspaces. All that it started ends with this
/// object, the programs that have detached themselves included.
class DesktopSession {
public:
    struct Options {
        DesktopKind kind = DesktopKind::xfce;
        PrivateDesktop::Server server = PrivateDesktop::Server::xvnc;
        int width = 1280;
        int height = 720;
        /// By how much the desktop's own settings scale it: 1 or 2.
        int scale = 1;
        /// As large as the screen; null takes a pattern that shows each wrong pixel.
        QImage wallpaper = {};
    };

    /// Returns once panel and wallpaper are on the screen and nothing moves any more. Null, with what is missing in
    /// `reason`, when this machine lacks a program for it: tests then do GTEST_SKIP() << reason. What is installed and
    /// does not come up is a failure of the test, which says what of it is not there, with null too.
    [[nodiscard]] static std::unique_ptr<DesktopSession> start(const Options& options, std::string& reason);
    ~DesktopSession();
    DesktopSession(const DesktopSession&) = delete;
    DesktopSession& operator=(const DesktopSession&) = delete;

    [[nodiscard]] PrivateDesktop& desktop() { return *desktop_; }
    /// What panels leave of the screen.
    [[nodiscard]] QRect workArea() const;
    /// What programs that are started from the panel get of the environment for the toolkit, as QT_SCALE_FACTOR. Empty,
    /// after a failure of the test, where there is no panel.
    [[nodiscard]] Environment toolkitEnvironment() const;
    /// From the start of the session to the finished desktop.
    [[nodiscard]] Milliseconds startTime() const { return startTime_; }
    /// Waits until the screen has stayed the same for `rest`; false when it never does.
    [[nodiscard]] bool waitUntilStill(Milliseconds rest = Milliseconds{700},
                                      Milliseconds timeout = Milliseconds{15000});

private:
    explicit DesktopSession(const Options& options) : options_(options) {}
    [[nodiscard]] static std::string missingFor(const DesktopRecipe& recipe);
    /// Each says in `reason` what did not come up.
    [[nodiscard]] bool prepare(std::string& reason);
    [[nodiscard]] bool startBus(std::string& reason);
    [[nodiscard]] bool startLoginManager(std::string& reason);
    [[nodiscard]] bool startPrograms(std::string& reason);
    [[nodiscard]] bool waitUntilComplete(std::string& reason);
    [[nodiscard]] bool writeDconf(std::string& reason);
    void preferOwnNotifications();
    /// Empty when the desktop is complete.
    [[nodiscard]] std::string whatIsNotThere();
    [[nodiscard]] bool showsWallpaper() const;
    [[nodiscard]] bool showsPanel() const;
    [[nodiscard]] bool spawn(const DesktopRecipe::Command& command, std::string& reason);

    Options options_;
    std::unique_ptr<PrivateDesktop> desktop_;
    DesktopRecipe recipe_;
    QImage wallpaper_;
    /// In the order of their start.
    std::vector<std::unique_ptr<Process>> programs_;
    Milliseconds startTime_{};
};

} // namespace nimbrale::test
