#include "tests/support/private_desktop.h"

#include "tests/support/x_reply.h"

#include <QByteArray>
#include <QDataStream>
#include <QIODevice>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <xcb/xcb.h>

namespace nimbrale::test {

namespace {

constexpr Milliseconds serverPatience{15000};
const char* const dummyDriver = "/usr/lib/xorg/modules/drivers/dummy_drv.so";

/// The dummy driver shows nothing anywhere but drives outputs as a card does. Its memory bounds the screen's growth.
std::string dummyConfiguration(const PrivateDesktop::Options& options)
{
    const std::string mode = std::to_string(options.width) + "x" + std::to_string(options.height);
    const auto timing = [](int size) {
        return std::to_string(size) + " " + std::to_string(size + 48) + " " + std::to_string(size + 96) + " " +
               std::to_string(size + 160);
    };
    const std::string modeLine = "  Modeline \"" + mode + "\" 100.00 " + timing(options.width) + " " +
                                 timing(options.height) + "\n  Option \"PreferredMode\" \"" + mode + "\"\n";
    const std::string ranges = "  HorizSync 1.0-1000.0\n  VertRefresh 1.0-500.0\n";
    const std::string depth = std::to_string(options.depth);
    return "Section \"ServerFlags\"\n  Option \"DontVTSwitch\" \"true\"\n  Option \"AllowMouseOpenFail\" \"true\"\n"
           "  Option \"AutoEnableDevices\" \"false\"\n  Option \"AutoAddDevices\" \"false\"\n"
           "  Option \"AutoAddGPU\" \"false\"\nEndSection\n"
           "Section \"Monitor\"\n  Identifier \"first\"\n" +
           ranges + modeLine +
           "  Option \"Primary\" \"true\"\nEndSection\n"
           "Section \"Monitor\"\n  Identifier \"second\"\n" +
           ranges +
           "  Option \"Enable\" \"false\"\nEndSection\n"
           "Section \"Device\"\n  Identifier \"dummy\"\n  Driver \"dummy\"\n  VideoRam 256000\n"
           "  Option \"Monitor-DUMMY0\" \"first\"\n  Option \"Monitor-DUMMY1\" \"second\"\nEndSection\n"
           "Section \"Screen\"\n  Identifier \"screen\"\n  Device \"dummy\"\n  Monitor \"first\"\n  DefaultDepth " +
           depth + "\n  SubSection \"Display\"\n    Depth " + depth + "\n    Modes \"" + mode +
           "\"\n  EndSubSection\nEndSection\n";
}

std::string programOf(PrivateDesktop::Server server)
{
    switch (server) {
    case PrivateDesktop::Server::xvnc:
        return "Xvnc";
    case PrivateDesktop::Server::xvfb:
        return "Xvfb";
    case PrivateDesktop::Server::xorgDummy:
        // The wrapper named Xorg in PATH refuses users without a console; the server itself needs no rights here.
        return findProgram("/usr/lib/xorg/Xorg").empty() ? "Xorg" : "/usr/lib/xorg/Xorg";
    }
    return {};
}

std::string geometryText(int width, int height)
{
    return std::to_string(width) + "x" + std::to_string(height);
}

} // namespace

PrivateDesktop::PrivateDesktop(Options options) : options_(std::move(options)) {}

std::unique_ptr<PrivateDesktop> PrivateDesktop::start(const Options& options, std::string& reason)
{
    reason = missingFor(options);
    if (!reason.empty())
        return nullptr;
    std::unique_ptr<PrivateDesktop> desktop(new PrivateDesktop(options));
    if (desktop->prepareFolder(reason) && desktop->startServer(reason) && desktop->connect(reason) &&
        desktop->startManagers(reason))
        return desktop;
    // Fatal, so that a body that comes after SetUp is not run without a desktop.
    [&reason] { FAIL() << reason; }();
    return nullptr;
}

std::string PrivateDesktop::missingFor(const Options& options)
{
    const std::string server = programOf(options.server);
    if (findProgram(server).empty())
        return server + " is not installed";
    if (options.server == Server::xorgDummy && !std::filesystem::exists(dummyDriver))
        return "the X server's dummy driver is not installed";
    return missingManager(options);
}

bool PrivateDesktop::startManagers(std::string& reason)
{
    writeResources();
    writeToolkitSettings();
    if (!startWindowManager()) {
        reason = "the window manager does not start" + (windowManager_ ? ": " + windowManager_->output() : "");
        return false;
    }
    if (isPicom(options_.compositor) && !startCompositor()) {
        reason = "the compositor does not start" + (compositor_ ? ": " + compositor_->output() : "");
        return false;
    }
    return true;
}

PrivateDesktop::~PrivateDesktop()
{
    compositor_.reset();
    windowManager_.reset();
    if (connection_)
        xcb_disconnect(connection_);
    server_.reset();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

bool PrivateDesktop::prepareFolder(std::string& reason)
{
    std::string pattern = (std::filesystem::temp_directory_path() / "nimbrale-desktop-XXXXXX").string();
    if (!mkdtemp(pattern.data())) {
        reason = "no temporary folder can be made";
        return false;
    }
    folder_ = pattern;
    for (const char* name : {"home", "config", "cache", "data", "runtime"}) {
        std::filesystem::create_directory(folder_ / name);
        chmod((folder_ / name).c_str(), 0700);
    }
    environment_ = {
        {"HOME", folder_ / "home"},
        {"XDG_CONFIG_HOME", folder_ / "config"},
        {"XDG_CACHE_HOME", folder_ / "cache"},
        {"XDG_DATA_HOME", folder_ / "data"},
        {"XDG_RUNTIME_DIR", folder_ / "runtime"},
        {"XDG_SESSION_TYPE", "x11"},
        {"LANG", "C.UTF-8"},
        {"PATH", std::getenv("PATH") ? std::getenv("PATH") : "/usr/local/bin:/usr/bin:/bin"},
        {"DBUS_SESSION_BUS_ADDRESS", "disabled:"},
        {"DBUS_SYSTEM_BUS_ADDRESS", "disabled:"},
        {"GSETTINGS_BACKEND", "memory"},
        {"QT_QPA_PLATFORM", "xcb"},
        {"NO_AT_BRIDGE", "1"},
    };
    for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS", "USER", "LOGNAME"}) {
        if (const char* value = std::getenv(name))
            environment_[name] = value;
    }
    return true;
}

std::vector<std::string> PrivateDesktop::serverCommand() const
{
    std::vector<std::string> command{programOf(options_.server), "-displayfd", "1", "-noreset", "-nolisten", "tcp"};
    const auto add = [&](std::initializer_list<std::string> arguments) { command.insert(command.end(), arguments); };
    switch (options_.server) {
    case Server::xvnc:
        add({"-geometry", geometryText(options_.width, options_.height), "-depth", std::to_string(options_.depth),
             "-SecurityTypes", "None", "-AlwaysShared", "-localhost", "-rfbport",
             std::to_string(options_.vncPort.value_or(-1))});
        // With a socket of its own the server opens no TCP port.
        if (!options_.vncPort)
            add({"-rfbunixpath", (folder_ / "rfb").string()});
        break;
    case Server::xvfb: {
        const QSize size = options_.growableTo.value_or(QSize(options_.width, options_.height));
        add({"-screen", "0", geometryText(size.width(), size.height()) + "x" + std::to_string(options_.depth)});
        break;
    }
    case Server::xorgDummy:
        add({"-config", (folder_ / "xorg.conf").string(), "-configdir", (folder_ / "xorg.conf.d").string(), "-logfile",
             (folder_ / "xorg.log").string()});
        break;
    }
    command.insert(command.end(), options_.serverArguments.begin(), options_.serverArguments.end());
    return command;
}

bool PrivateDesktop::startServer(std::string& reason)
{
    if (options_.server == Server::xorgDummy) {
        std::filesystem::create_directory(folder_ / "xorg.conf.d");
        std::ofstream(folder_ / "xorg.conf") << dummyConfiguration(options_);
    }
    std::vector<std::string> command = serverCommand();
    const std::string program = command.front();
    command.erase(command.begin());
    // The server prints the number of the display that it found free, once it takes connections.
    server_ = Process::start(program, command, {environment_, folder_ / "server.log", true}, reason);
    if (!server_)
        return false;
    const std::optional<std::string> number = server_->readLine(serverPatience);
    if (!number) {
        reason = program + " does not start: " + server_->output();
        return false;
    }
    displayName_ = ":" + *number;
    environment_["DISPLAY"] = displayName_;
    return true;
}

bool PrivateDesktop::connect(std::string& reason)
{
    int number = 0;
    connection_ = xcb_connect(displayName_.c_str(), &number);
    if (xcb_connection_has_error(connection_)) {
        reason = "no connection to the private X server " + displayName_;
        return false;
    }
    screen_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
    if (options_.server == Server::xvfb && options_.growableTo) {
        useSmallerMode();
        if (screenSize() != QSize(options_.width, options_.height)) {
            reason = "Xvfb does not offer the size " + geometryText(options_.width, options_.height);
            return false;
        }
    }
    return true;
}

void PrivateDesktop::useSmallerMode()
{
    const std::string mode = geometryText(options_.width, options_.height);
    const auto add = [](std::vector<std::string>& words, int size) {
        for (const int edge : {size, size + 48, size + 96, size + 160})
            words.push_back(std::to_string(edge));
    };
    std::vector<std::string> newMode{"--newmode", mode, "100.00"};
    add(newMode, options_.width);
    add(newMode, options_.height);
    run("xrandr", newMode);
    run("xrandr", {"--addmode", "screen", mode});
    run("xrandr", {"--output", "screen", "--mode", mode});
}

void PrivateDesktop::writeResources()
{
    if (options_.dotsPerInch == 0)
        return;
    const std::string resources = "Xft.dpi:\t" + std::to_string(options_.dotsPerInch) + "\n";
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, screen_->root, XCB_ATOM_RESOURCE_MANAGER, XCB_ATOM_STRING,
                        8, static_cast<std::uint32_t>(resources.size()), resources.data());
    synchronize();
}

void PrivateDesktop::writeToolkitSettings()
{
    if (options_.windowScalingFactor == 0)
        return;
    const std::string name = "Gdk/WindowScalingFactor";
    QByteArray settings;
    QDataStream stream(&settings, QIODevice::WriteOnly);
    constexpr quint8 mostSignificantFirst = 1;
    constexpr quint32 serial = 1;
    constexpr quint32 count = 1;
    constexpr quint8 wholeNumber = 0;
    stream << mostSignificantFirst << quint8(0) << quint16(0) << serial << count;
    stream << wholeNumber << quint8(0) << quint16(name.size());
    stream.writeRawData(name.data(), static_cast<int>(name.size()));
    stream << quint8(0) << serial << qint32(options_.windowScalingFactor);
    const xcb_window_t window = xcb_generate_id(connection_);
    xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window, screen_->root, -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
    const xcb_atom_t property = atom("_XSETTINGS_SETTINGS");
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, property, property, 8,
                        static_cast<std::uint32_t>(settings.size()), settings.constData());
    xcb_set_selection_owner(connection_, window, atom("_XSETTINGS_S0"), XCB_CURRENT_TIME);
    synchronize();
}

void PrivateDesktop::changeEnvironment(const Environment& changes)
{
    for (const auto& [name, value] : changes)
        environment_[name] = value;
}

void PrivateDesktop::adoptEnvironment() const
{
    for (const char* name : {"DISPLAY", "HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME", "XDG_RUNTIME_DIR",
                             "DBUS_SESSION_BUS_ADDRESS", "QT_QPA_PLATFORM"})
        qputenv(name, QByteArray::fromStdString(environment_.at(name)));
}

std::unique_ptr<Process> PrivateDesktop::spawn(const std::string& program, const std::vector<std::string>& arguments,
                                               const Environment& changes, bool isSpokenWith)
{
    Environment environment = changes;
    environment.insert(environment_.begin(), environment_.end());
    const std::string log = std::filesystem::path(program).filename().string() + "-" + std::to_string(++spawned_);
    std::string error;
    return Process::start(program, arguments, {environment, folder_ / (log + ".log"), isSpokenWith}, error);
}

std::string PrivateDesktop::run(const std::string& program, const std::vector<std::string>& arguments)
{
    const std::unique_ptr<Process> process = spawn(program, arguments);
    if (!process)
        return program + " is not installed";
    if (!process->waitForEnd(Milliseconds{10000}))
        process->terminate();
    return process->output();
}

void PrivateDesktop::synchronize() const
{
    Reply<xcb_get_input_focus_reply_t>(
        xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
}

void PrivateDesktop::setBackground(const QColor& color)
{
    std::uint32_t pixel = color.rgb() & 0xffffffU;
    if (screen_->root_depth == 16)
        pixel = static_cast<std::uint32_t>((color.red() >> 3) << 11 | (color.green() >> 2) << 5 | color.blue() >> 3);
    if (screen_->root_depth == 30)
        pixel = static_cast<std::uint32_t>(color.red() << 22 | color.green() << 12 | color.blue() << 2);
    xcb_change_window_attributes(connection_, screen_->root, XCB_CW_BACK_PIXEL, &pixel);
    xcb_clear_area(connection_, 0, screen_->root, 0, 0, 0, 0);
    synchronize();
}

std::uint32_t PrivateDesktop::atom(const std::string& name) const
{
    const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        connection_, xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.data()), nullptr));
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

} // namespace nimbrale::test
