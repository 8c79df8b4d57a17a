#pragma once

#include "tests/support/process.h"

#include <filesystem>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace nimbrale::test {

enum class DesktopKind { xfce, mate, plasma, gnome, cinnamon };

/// As the names of tests have it: "Xfce".
[[nodiscard]] std::string desktopName(DesktopKind kind);
std::ostream& operator<<(std::ostream& stream, DesktopKind kind);

/// How a desktop's session is started without a login.
struct DesktopRecipe {
    using Command = std::vector<std::string>;

    /// Laid over that of the private desktop.
    Environment environment;
    /// Settings by files, their paths from $XDG_CONFIG_HOME.
    std::map<std::filesystem::path, std::string> files;
    /// Settings by dconf, as `dconf dump /` prints them.
    std::string dconf;
    /// The D-Bus service that shows the desktop's own notifications: several desktops are installed, and the session
    /// bus would take any of theirs.
    std::string notifications;
    /// Whether the session is asked for at the login manager.
    bool needsLoginManager = false;
    /// What is started, in this order. The last is the session.
    std::vector<Command> commands;
    /// The program that users start others from, as the kernel names it.
    std::string panel;
    /// What a user would still do by hand, asked for again and again until the desktop is complete. May be empty.
    Command completion;
};

/// What the desktop is to look like.
struct DesktopLook {
    std::filesystem::path wallpaper = {};
    /// On which the wallpaper is.
    std::string monitor = {};
    /// By how much everything is larger, set as the desktop's own display settings set it: 1 or 2.
    int scale = 1;
};

/// The recipe for a desktop with four workspaces.
[[nodiscard]] DesktopRecipe desktopRecipe(DesktopKind kind, const DesktopLook& look);

} // namespace nimbrale::test
