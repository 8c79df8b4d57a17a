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

DesktopRecipe xfce(const DesktopLook& look)
{
    DesktopRecipe recipe;
    recipe.environment = {{"XDG_CURRENT_DESKTOP", "XFCE"}, {"XDG_MENU_PREFIX", "xfce-"}};
    const std::filesystem::path channels = "xfce4/xfconf/xfce-perchannel-xml";
    recipe.files[channels / "xfce4-desktop.xml"] =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<channel name=\"xfce4-desktop\" version=\"1.0\"><property name=\"backdrop\" type=\"empty\">"
        "<property name=\"single-workspace-mode\" type=\"bool\" value=\"true\"/>"
        "<property name=\"screen0\" type=\"empty\"><property name=\"monitor" +
        look.monitor +
        "\" type=\"empty\"><property name=\"workspace0\" type=\"empty\">"
        "<property name=\"image-style\" type=\"int\" value=\"3\"/><property name=\"last-image\" type=\"string\" "
        "value=\"" +
        look.wallpaper.string() + "\"/></property></property></property></property></channel>\n";
    recipe.files[channels / "xsettings.xml"] =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<channel name=\"xsettings\" version=\"1.0\"><property name=\"Gdk\" type=\"empty\">"
        "<property name=\"WindowScalingFactor\" type=\"int\" value=\"" +
        std::to_string(look.scale) + "\"/></property></channel>\n";
    recipe.notifications = "org.xfce.xfce4-notifyd.Notifications";
    recipe.commands = {{"xfce4-session"}};
    recipe.panel = "xfce4-panel";
    return recipe;
}

DesktopRecipe mate(const DesktopLook& look)
{
    DesktopRecipe recipe;
    recipe.environment = {{"XDG_CURRENT_DESKTOP", "MATE"}, {"DESKTOP_SESSION", "mate"}, {"XDG_MENU_PREFIX", "mate-"}};
    recipe.dconf = "[org/mate/desktop/background]\npicture-filename='" + look.wallpaper.string() +
                   "'\npicture-options='stretched'\n\n"
                   "[org/mate/marco/general]\ncompositing-manager=true\nnum-workspaces=4\n\n"
                   "[org/mate/desktop/interface]\nwindow-scaling-factor=" +
                   std::to_string(look.scale) + "\n";
    recipe.notifications = "org.freedesktop.mate.Notifications";
    recipe.commands = {{"mate-session"}};
    recipe.panel = "mate-panel";
    return recipe;
}

DesktopRecipe plasma(const DesktopLook& look)
{
    DesktopRecipe recipe;
    const std::string scale = std::to_string(look.scale);
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
                    {"kdeglobals",
                     "[KScreen]\nScaleFactor=" + scale + "\nScreenScaleFactors=" + look.monitor + "=" + scale + ";\n"},
                    {"kcmfonts", "[General]\nforceFontDPI=" + std::to_string(96 * look.scale) + "\n"},
                    {"kwinrc", "[Compositing]\nEnabled=true\nOpenGLIsUnsafe=false\n[Desktops]\nNumber=4\nRows=1\n"}};
    recipe.notifications = "org.kde.plasma.Notifications";
    recipe.commands = {{"startplasma-x11"}};
    recipe.panel = "plasmashell";
    recipe.completion =
        message("org.kde.plasmashell", "/PlasmaShell", "org.kde.PlasmaShell.evaluateScript",
                {"string:for (var d of desktops()) { d.wallpaperPlugin = 'org.kde.image'; "
                 "d.currentConfigGroup = ['Wallpaper', 'org.kde.image', 'General']; d.writeConfig('Image', 'file://" +
                 look.wallpaper.string() + "'); d.writeConfig('FillMode', 0); }"});
    return recipe;
}

DesktopRecipe gnome(const DesktopLook& look)
{
    DesktopRecipe recipe;
    recipe.environment = {
        {"XDG_CURRENT_DESKTOP", "GNOME"}, {"DESKTOP_SESSION", "gnome"}, {"GNOME_SHELL_SESSION_MODE", "user"}};
    recipe.dconf = "[org/gnome/desktop/background]\npicture-uri='file://" + look.wallpaper.string() +
                   "'\npicture-uri-dark='file://" + look.wallpaper.string() +
                   "'\npicture-options='stretched'\n\n"
                   "[org/gnome/shell]\nwelcome-dialog-last-shown-version='999'\n\n"
                   "[org/gnome/mutter]\ndynamic-workspaces=false\n\n"
                   "[org/gnome/desktop/wm/preferences]\nnum-workspaces=4\n\n"
                   "[org/gnome/desktop/interface]\nscaling-factor=uint32 " +
                   std::to_string(look.scale) + "\n";
    recipe.notifications = "org.gnome.Shell.Notifications";
    recipe.needsLoginManager = true;
    recipe.commands = {{"/usr/libexec/gsd-xsettings"}, {"gnome-shell", "--x11"}};
    recipe.panel = "gnome-shell";
    // A session begins in the overview.
    recipe.completion = message("org.gnome.Shell", "/org/gnome/Shell", "org.freedesktop.DBus.Properties.Set",
                                {"string:org.gnome.Shell", "string:OverviewActive", "variant:boolean:false"});
    return recipe;
}

DesktopRecipe cinnamon(const DesktopLook& look)
{
    DesktopRecipe recipe;
    recipe.environment = {
        {"XDG_CURRENT_DESKTOP", "X-Cinnamon"}, {"DESKTOP_SESSION", "cinnamon"}, {"XDG_CONFIG_DIRS", "/etc/xdg"}};
    recipe.dconf = "[org/cinnamon/desktop/background]\npicture-uri='file://" + look.wallpaper.string() +
                   "'\npicture-options='stretched'\n\n"
                   "[org/cinnamon/desktop/wm/preferences]\nnum-workspaces=4\n\n"
                   "[org/cinnamon/desktop/interface]\nscaling-factor=uint32 " +
                   std::to_string(look.scale) + "\n";
    recipe.needsLoginManager = true;
    recipe.commands = {{"cinnamon-session", "--session", "cinnamon"}};
    recipe.panel = "cinnamon";
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

DesktopRecipe desktopRecipe(DesktopKind kind, const DesktopLook& look)
{
    switch (kind) {
    case DesktopKind::xfce:
        return xfce(look);
    case DesktopKind::mate:
        return mate(look);
    case DesktopKind::plasma:
        return plasma(look);
    case DesktopKind::gnome:
        return gnome(look);
    case DesktopKind::cinnamon:
        return cinnamon(look);
    }
    return {};
}

} // namespace nimbrale::test
