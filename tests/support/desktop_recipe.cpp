#include "tests/support/desktop_recipe.h"

namespace nimbrale::test {

namespace {

DesktopRecipe::Command message(const std::string& service, const std::string& path, const std::string& method,
                               const std::vector<std::string>& arguments)
{
    DesktopRecipe::Command command{"dbus-send", "--session", "--print-reply", "--dest=" + service, path, method};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

DesktopRecipe xfce(const std::string& wallpaper, const std::string& monitor)
{
    DesktopRecipe recipe;
    recipe.environment = {{"XDG_CURRENT_DESKTOP", "XFCE"}, {"XDG_MENU_PREFIX", "xfce-"}};
    const std::filesystem::path channels = "xfce4/xfconf/xfce-perchannel-xml";
    recipe.files[channels / "xfce4-desktop.xml"] =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<channel name=\"xfce4-desktop\" version=\"1.0\"><property name=\"backdrop\" type=\"empty\">"
        "<property name=\"single-workspace-mode\" type=\"bool\" value=\"true\"/>"
        "<property name=\"screen0\" type=\"empty\"><property name=\"monitor" +
        monitor +
        "\" type=\"empty\"><property name=\"workspace0\" type=\"empty\">"
        "<property name=\"image-style\" type=\"int\" value=\"3\"/><property name=\"last-image\" type=\"string\" "
        "value=\"" +
        wallpaper + "\"/></property></property></property></property></channel>\n";
    recipe.notifications = "org.xfce.xfce4-notifyd.Notifications";
    recipe.commands = {{"xfce4-session"}};
    return recipe;
}

DesktopRecipe mate(const std::string& wallpaper)
{
    DesktopRecipe recipe;
    recipe.environment = {{"XDG_CURRENT_DESKTOP", "MATE"}, {"DESKTOP_SESSION", "mate"}, {"XDG_MENU_PREFIX", "mate-"}};
    recipe.dconf = "[org/mate/desktop/background]\npicture-filename='" + wallpaper +
                   "'\npicture-options='stretched'\n\n"
                   "[org/mate/marco/general]\ncompositing-manager=true\nnum-workspaces=4\n";
    recipe.notifications = "org.freedesktop.mate.Notifications";
    recipe.commands = {{"mate-session"}};
    return recipe;
}

DesktopRecipe plasma(const std::string& wallpaper)
{
    DesktopRecipe recipe;
    // Drawn by software, KWin would leave its effects out.
    recipe.environment = {{"XDG_CURRENT_DESKTOP", "KDE"},
                          {"KDE_FULL_SESSION", "true"},
                          {"KDE_SESSION_VERSION", "5"},
                          {"DESKTOP_SESSION", "plasma"},
                          {"KWIN_EFFECTS_FORCE_ANIMATIONS", "1"}};
    recipe.files = {{"startkderc", "[General]\nsystemdBoot=false\n"},
                    {"ksplashrc", "[KSplash]\nEngine=none\nTheme=None\n"},
                    {"baloofilerc", "[Basic Settings]\nIndexing-Enabled=false\n"},
                    {"kwalletrc", "[Wallet]\nEnabled=false\n"},
                    {"kwinrc", "[Compositing]\nEnabled=true\nOpenGLIsUnsafe=false\n[Desktops]\nNumber=4\nRows=1\n"}};
    recipe.notifications = "org.kde.plasma.Notifications";
    recipe.commands = {{"startplasma-x11"}};
    recipe.completion =
        message("org.kde.plasmashell", "/PlasmaShell", "org.kde.PlasmaShell.evaluateScript",
                {"string:for (var d of desktops()) { d.wallpaperPlugin = 'org.kde.image'; "
                 "d.currentConfigGroup = ['Wallpaper', 'org.kde.image', 'General']; d.writeConfig('Image', 'file://" +
                 wallpaper + "'); d.writeConfig('FillMode', 0); }"});
    return recipe;
}

DesktopRecipe gnome(const std::string& wallpaper)
{
    DesktopRecipe recipe;
    recipe.environment = {
        {"XDG_CURRENT_DESKTOP", "GNOME"}, {"DESKTOP_SESSION", "gnome"}, {"GNOME_SHELL_SESSION_MODE", "user"}};
    recipe.dconf = "[org/gnome/desktop/background]\npicture-uri='file://" + wallpaper + "'\npicture-uri-dark='file://" +
                   wallpaper +
                   "'\npicture-options='stretched'\n\n"
                   "[org/gnome/shell]\nwelcome-dialog-last-shown-version='999'\n\n"
                   "[org/gnome/mutter]\ndynamic-workspaces=false\n\n"
                   "[org/gnome/desktop/wm/preferences]\nnum-workspaces=4\n";
    recipe.notifications = "org.gnome.Shell.Notifications";
    recipe.needsLoginManager = true;
    recipe.commands = {{"/usr/libexec/gsd-xsettings"}, {"gnome-shell", "--x11"}};
    // A session begins in the overview.
    recipe.completion = message("org.gnome.Shell", "/org/gnome/Shell", "org.freedesktop.DBus.Properties.Set",
                                {"string:org.gnome.Shell", "string:OverviewActive", "variant:boolean:false"});
    return recipe;
}

DesktopRecipe cinnamon(const std::string& wallpaper)
{
    DesktopRecipe recipe;
    recipe.environment = {
        {"XDG_CURRENT_DESKTOP", "X-Cinnamon"}, {"DESKTOP_SESSION", "cinnamon"}, {"XDG_CONFIG_DIRS", "/etc/xdg"}};
    recipe.dconf = "[org/cinnamon/desktop/background]\npicture-uri='file://" + wallpaper +
                   "'\npicture-options='stretched'\n\n"
                   "[org/cinnamon/desktop/wm/preferences]\nnum-workspaces=4\n";
    recipe.needsLoginManager = true;
    recipe.commands = {{"cinnamon-session", "--session", "cinnamon"}};
    return recipe;
}

} // namespace

std::string desktopName(DesktopKind kind)
{
    switch (kind) {
    case DesktopKind::xfce:
        return "Xfce";
    case DesktopKind::mate:
        return "Mate";
    case DesktopKind::plasma:
        return "Plasma";
    case DesktopKind::gnome:
        return "Gnome";
    case DesktopKind::cinnamon:
        return "Cinnamon";
    }
    return {};
}

std::ostream& operator<<(std::ostream& stream, DesktopKind kind)
{
    return stream << desktopName(kind);
}

DesktopRecipe desktopRecipe(DesktopKind kind, const std::filesystem::path& wallpaper, const std::string& monitor)
{
    switch (kind) {
    case DesktopKind::xfce:
        return xfce(wallpaper, monitor);
    case DesktopKind::mate:
        return mate(wallpaper);
    case DesktopKind::plasma:
        return plasma(wallpaper);
    case DesktopKind::gnome:
        return gnome(wallpaper);
    case DesktopKind::cinnamon:
        return cinnamon(wallpaper);
    }
    return {};
}

} // namespace nimbrale::test
