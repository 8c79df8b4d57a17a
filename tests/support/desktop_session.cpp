#include "tests/support/desktop_session.h"

#include "tests/support/bus_configuration.h"
#include "tests/support/image_compare.h"
#include "tests/support/process_tree.h"
#include "tests/support/scene.h"
#include "tests/support/window_requests.h"

#include <chrono>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace nimbrale::test {

namespace {

constexpr Milliseconds patience{60000};
constexpr Milliseconds busPatience{10000};
constexpr std::uint32_t wallpaperSeed = 77;
/// A desktop's icons lie on the wallpaper.
constexpr double leastShareOfWallpaper = 0.9;

/// The end of a log, which is where programs say why they gave up.
std::string lastWords(const std::string& text)
{
    constexpr std::size_t most = 3000;
    return text.size() > most ? text.substr(text.size() - most) : text;
}

} // namespace

std::string DesktopSession::missingFor(const DesktopRecipe& recipe)
{
    std::vector<std::string> programs{"dbus-daemon", "dbus-send", "dconf"};
    for (const DesktopRecipe::Command& command : recipe.commands)
        programs.push_back(command.front());
    for (const std::string& program : programs) {
        if (findProgram(program).empty())
            return program + " is not installed";
    }
    if (recipe.needsLoginManager && !std::filesystem::exists("/usr/lib/python3/dist-packages/dbusmock"))
        return "python3-dbusmock is not installed";
    return {};
}

std::unique_ptr<DesktopSession> DesktopSession::start(const Options& options, std::string& reason)
{
    reason = missingFor(desktopRecipe(options.kind, {}));
    if (!reason.empty())
        return nullptr;
    std::unique_ptr<DesktopSession> session(new DesktopSession(options));
    session->desktop_ =
        PrivateDesktop::start({.server = options.server, .width = options.width, .height = options.height}, reason);
    if (!session->desktop_)
        return nullptr;
    const auto begin = std::chrono::steady_clock::now();
    if (session->prepare(reason) && session->startBus(reason) && session->startLoginManager(reason) &&
        session->startPrograms(reason) && session->waitUntilComplete(reason)) {
        session->startTime_ = std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - begin);
        return session;
    }
    [&] {
        FAIL() << "the " << desktopName(options.kind) << " session does not come up: " << reason << "; kept as "
               << keepImage(session->desktop_->screenshot(), "session");
    }();
    return nullptr;
}

DesktopSession::~DesktopSession()
{
    // The session first, then what it speaks to; each leader ends all that came of its program.
    while (!programs_.empty()) {
        programs_.back()->signal(SIGTERM);
        static_cast<void>(programs_.back()->waitForEnd(Milliseconds{5000}));
        programs_.pop_back();
    }
}

QRect DesktopSession::workArea() const
{
    return WindowRequests(*desktop_).workArea();
}

Environment DesktopSession::toolkitEnvironment() const
{
    for (const pid_t process : descendants()) {
        const std::filesystem::path about = "/proc/" + std::to_string(process);
        std::ifstream nameFile(about / "comm");
        std::string name;
        if (!std::getline(nameFile, name) || name != recipe_.panel)
            continue;
        Environment found;
        std::ifstream variables(about / "environ");
        for (std::string variable; std::getline(variables, variable, '\0');) {
            const std::size_t equals = variable.find('=');
            if (variable.rfind("QT_", 0) == 0 && equals != std::string::npos)
                found[variable.substr(0, equals)] = variable.substr(equals + 1);
        }
        return found;
    }
    ADD_FAILURE() << recipe_.panel << " does not run";
    return {};
}

bool DesktopSession::prepare(std::string& reason)
{
    const std::filesystem::path picture = desktop_->folder() / "wallpaper.png";
    // Some scaled desktops draw their wallpaper in points: then a point has one color.
    const QSize screen(options_.width, options_.height);
    wallpaper_ = options_.wallpaper.isNull() ? Scene::pattern(wallpaperSeed, screen / options_.scale).scaled(screen)
                                             : options_.wallpaper;
    if (!wallpaper_.save(QString::fromStdString(picture.string()))) {
        reason = "the wallpaper cannot be written";
        return false;
    }
    recipe_ = desktopRecipe(options_.kind,
                            {.wallpaper = picture, .monitor = desktop_->outputName(0), .scale = options_.scale});
    desktop_->changeEnvironment(recipe_.environment);
    desktop_->changeEnvironment({{"GSETTINGS_BACKEND", "dconf"}, {"LIBGL_ALWAYS_SOFTWARE", "1"}});
    for (const auto& [name, content] : recipe_.files) {
        const std::filesystem::path path = desktop_->configFolder() / name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << content;
    }
    if (!recipe_.notifications.empty())
        preferOwnNotifications();
    return recipe_.dconf.empty() || writeDconf(reason);
}

/// What lies in the user's own folder goes before what the system has.
void DesktopSession::preferOwnNotifications()
{
    std::ifstream service("/usr/share/dbus-1/services/" + recipe_.notifications + ".service");
    const std::filesystem::path folder = desktop_->environment().at("XDG_DATA_HOME") + "/dbus-1/services";
    std::filesystem::create_directories(folder);
    std::ofstream own(folder / "org.freedesktop.Notifications.service");
    for (std::string line; std::getline(service, line);)
        own << (line.rfind("Name=", 0) == 0 ? "Name=org.freedesktop.Notifications" : line) << '\n';
}

bool DesktopSession::writeDconf(std::string& reason)
{
    const std::filesystem::path settings = desktop_->folder() / "dconf";
    const std::filesystem::path target = desktop_->configFolder() / "dconf";
    std::filesystem::create_directories(settings);
    std::filesystem::create_directories(target);
    std::ofstream(settings / "user") << recipe_.dconf;
    const std::string output = desktop_->run("dconf", {"compile", target / "user", settings});
    if (std::filesystem::exists(target / "user"))
        return true;
    reason = "the settings cannot be written: " + output;
    return false;
}

bool DesktopSession::spawn(const DesktopRecipe::Command& command, std::string& reason)
{
    std::unique_ptr<Process> process = desktop_->spawn("nimbrale_session_leader", command);
    if (!process) {
        reason = "nimbrale_session_leader is not built";
        return false;
    }
    programs_.push_back(std::move(process));
    return true;
}

bool DesktopSession::startBus(std::string& reason)
{
    const std::filesystem::path socket = desktop_->environment().at("XDG_RUNTIME_DIR") + "/bus";
    const std::string address = "unix:path=" + socket.string();
    desktop_->changeEnvironment({{"DBUS_SESSION_BUS_ADDRESS", address}});
    if (!spawn({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--address=" + address}, reason))
        return false;
    reason = "the session bus";
    return waitUntil([&] { return std::filesystem::exists(socket); }, busPatience);
}

bool DesktopSession::startLoginManager(std::string& reason)
{
    if (!recipe_.needsLoginManager)
        return true;
    const std::filesystem::path socket = desktop_->environment().at("XDG_RUNTIME_DIR") + "/system_bus";
    const std::string address = "unix:path=" + socket.string();
    const std::filesystem::path configuration = desktop_->folder() / "system-bus.conf";
    std::ofstream(configuration) << busConfiguration("system", address);
    desktop_->changeEnvironment(
        {{"DBUS_SYSTEM_BUS_ADDRESS", address}, {"XDG_SESSION_ID", "c1"}, {"XDG_SESSION_CLASS", "user"}});
    if (!spawn({"dbus-daemon", "--config-file=" + configuration.string(), "--nofork", "--nopidfile"}, reason))
        return false;
    reason = "the system bus";
    if (!waitUntil([&] { return std::filesystem::exists(socket); }, busPatience))
        return false;
    if (!spawn({"python3", "-m", "dbusmock", "--system", "--template", "logind"}, reason))
        return false;
    reason = "the login manager";
    const std::vector<std::string> addSession{"--system",
                                              "--print-reply",
                                              "--dest=org.freedesktop.login1",
                                              "/org/freedesktop/login1",
                                              "org.freedesktop.DBus.Mock.AddSession",
                                              "string:c1",
                                              "string:seat0",
                                              "uint32:" + std::to_string(getuid()),
                                              "string:user",
                                              "boolean:true"};
    return waitUntil([&] { return desktop_->run("dbus-send", addSession).find("session/c1") != std::string::npos; },
                     busPatience, Milliseconds{200});
}

bool DesktopSession::startPrograms(std::string& reason)
{
    for (const DesktopRecipe::Command& command : recipe_.commands) {
        if (!spawn(command, reason))
            return false;
    }
    return true;
}

bool DesktopSession::waitUntilComplete(std::string& reason)
{
    Process& session = *programs_.back();
    const auto isOver = [&] {
        reason = whatIsNotThere();
        if (!reason.empty() && !recipe_.completion.empty() && desktop_->hasWindowManager()) {
            const std::vector<std::string> arguments(recipe_.completion.begin() + 1, recipe_.completion.end());
            desktop_->run(recipe_.completion.front(), arguments);
        }
        return reason.empty() || !session.isRunning();
    };
    static_cast<void>(waitUntil(isOver, patience, Milliseconds{250}));
    if (!reason.empty()) {
        reason += " is missing; the session said: " + lastWords(session.output());
        return false;
    }
    reason = "the screen never rests";
    return waitUntilStill();
}

std::string DesktopSession::whatIsNotThere()
{
    if (!desktop_->hasWindowManager())
        return "the window manager";
    if (!desktop_->isComposited())
        return "the compositing manager";
    const QRect area = workArea();
    if (area.isEmpty() || area.size() == desktop_->screenSize())
        return "the panel's place";
    if (!showsWallpaper())
        return "the wallpaper";
    return showsPanel() ? "" : "the panel";
}

bool DesktopSession::showsWallpaper() const
{
    const QRect area = workArea();
    const QImage screen = desktop_->screenshot(area);
    const QImage expected = wallpaper_.copy(area);
    qint64 equal = 0;
    for (int y = 0; y < screen.height(); ++y) {
        for (int x = 0; x < screen.width(); ++x)
            equal += screen.pixel(x, y) == expected.pixel(x, y);
    }
    return double(equal) >= leastShareOfWallpaper * area.width() * area.height();
}

/// Whether there is more than one color, and not the wallpaper, where the work area is not.
bool DesktopSession::showsPanel() const
{
    const QRect area = workArea();
    const QImage screen = desktop_->screenshot();
    const int row = area.top() > 0 ? area.top() / 2 : (area.bottom() + screen.height()) / 2;
    bool hasColors = false;
    bool hasWallpaper = true;
    for (int x = 0; x < screen.width(); ++x) {
        hasColors = hasColors || screen.pixel(x, row) != screen.pixel(0, row);
        hasWallpaper = hasWallpaper && screen.pixel(x, row) == wallpaper_.pixel(x, row);
    }
    return hasColors && !hasWallpaper;
}

bool DesktopSession::waitUntilStill(Milliseconds rest, Milliseconds timeout)
{
    QImage last = desktop_->screenshot();
    auto since = std::chrono::steady_clock::now();
    return waitUntil(
        [&] {
            const QImage now = desktop_->screenshot();
            if (now != last) {
                last = now;
                since = std::chrono::steady_clock::now();
            }
            return std::chrono::steady_clock::now() - since >= rest;
        },
        timeout, Milliseconds{50});
}

} // namespace nimbrale::test
