#include "tests/support/private_pipewire.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <utility>

namespace nimbrale::test {

namespace {

/// The session manager is not to look for devices of this machine; how it is told so differs between its versions.
void leaveOutHardware(const std::filesystem::path& configuration)
{
    const auto write = [&configuration](const char* name, const char* text) {
        const std::filesystem::path path = configuration / "wireplumber" / name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << text;
    };
    write("main.lua.d/60-no-hardware.lua",
          "alsa_monitor.enabled = false\nv4l2_monitor.enabled = false\nlibcamera_monitor.enabled = false\n");
    write("bluetooth.lua.d/60-no-hardware.lua", "bluez_monitor.enabled = false\n");
    write("wireplumber.conf.d/no-hardware.conf",
          "wireplumber.profiles = { main = { hardware.audio = disabled hardware.bluetooth = disabled "
          "hardware.video-capture = disabled } }\n");
}

} // namespace

std::string PrivatePipewire::missing()
{
    for (const char* const program : {"pipewire", "wireplumber", "dbus-daemon"}) {
        if (findProgram(program).empty())
            return std::string(program) + " is not installed";
    }
    return {};
}

std::unique_ptr<PrivatePipewire> PrivatePipewire::start(std::string& reason)
{
    std::unique_ptr<PrivatePipewire> pipewire(new PrivatePipewire);
    leaveOutHardware(pipewire->home_.filePath(".config").toStdString());
    pipewire->bus_ = PrivateBus::start(reason);
    if (!pipewire->bus_ || !pipewire->startPrograms(reason))
        return nullptr;
    return pipewire;
}

PrivatePipewire::~PrivatePipewire() = default;

std::string PrivatePipewire::runtimeFolder() const
{
    return home_.path().toStdString();
}

Environment PrivatePipewire::environment() const
{
    return {{"PATH", "/usr/bin:/bin"},
            {"HOME", runtimeFolder()},
            {"XDG_RUNTIME_DIR", runtimeFolder()},
            {"DBUS_SESSION_BUS_ADDRESS", bus_->address()},
            // Nothing that asks the machine's own services, such as the one that gives threads a higher priority.
            {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/no/such/bus"},
            {"QT_QPA_PLATFORM", "offscreen"}};
}

bool PrivatePipewire::startPrograms(std::string& reason)
{
    const std::filesystem::path folder = runtimeFolder();
    std::error_code ignored;
    std::filesystem::remove(folder / "pipewire-0", ignored); // A crashed daemon leaves it.
    Process::Options options;
    options.environment = environment();
    options.outputFile = folder / "pipewire.log";
    daemon_ = Process::start("pipewire", {}, options, reason);
    if (!daemon_)
        return false;
    const auto hasSocket = [&folder] { return std::filesystem::exists(folder / "pipewire-0"); };
    if (!waitUntil(hasSocket, Milliseconds{10'000})) {
        reason = "pipewire makes no socket: " + daemon_->output();
        return false;
    }
    return startSessionManager(reason);
}

bool PrivatePipewire::startSessionManager(std::string& reason)
{
    Process::Options options;
    options.environment = environment();
    options.outputFile = std::filesystem::path(runtimeFolder()) / "wireplumber.log";
    sessionManager_ = Process::start("wireplumber", {}, options, reason);
    return sessionManager_ != nullptr;
}

void PrivatePipewire::crashSessionManager()
{
    sessionManager_->signal(SIGKILL);
    static_cast<void>(sessionManager_->waitForEnd(Milliseconds{5000}));
    sessionManager_.reset();
}

std::optional<std::string> PrivatePipewire::control(const std::vector<std::string>& arguments,
                                                    std::string& reason) const
{
    Process::Options options;
    options.environment = environment();
    options.outputFile = std::filesystem::path(runtimeFolder()) / "control.log";
    std::error_code ignored;
    std::filesystem::remove(options.outputFile, ignored); // What is printed is appended.
    const auto program = Process::start("pw-cli", arguments, options, reason);
    if (!program)
        return std::nullopt;
    if (program->waitForEnd(Milliseconds{5000}) == 0)
        return program->output();
    reason = "pw-cli fails: " + program->output();
    return std::nullopt;
}

std::optional<bool> PrivatePipewire::hasNode(const std::string& name, std::string& reason) const
{
    const auto nodes = control({"ls", "Node"}, reason);
    return nodes ? std::optional(nodes->find('"' + name + '"') != std::string::npos) : std::nullopt;
}

std::optional<std::vector<std::string>> PrivatePipewire::players(std::string& reason) const
{
    const auto nodes = control({"ls", "Node"}, reason);
    if (!nodes)
        return std::nullopt;
    std::vector<std::string> found;
    std::string name;
    std::istringstream lines(*nodes);
    const std::regex value("^\\s*(node\\.name|media\\.class) = \"(.*)\"");
    // A node's name comes before its class.
    for (std::string line; std::getline(lines, line);) {
        std::smatch parts;
        if (!std::regex_search(line, parts, value))
            continue;
        if (parts[1] == "node.name")
            name = parts[2];
        else if (parts[2] == "Stream/Output/Audio")
            found.push_back(name);
    }
    return found;
}

std::optional<std::string> PrivatePipewire::nodeState(const std::string& name, std::string& reason) const
{
    const auto facts = control({"info", name}, reason);
    if (!facts)
        return std::nullopt;
    std::smatch state;
    if (std::regex_search(*facts, state, std::regex("state: \"([a-z]+)\"")))
        return state[1];
    reason = "no state of " + name + ": " + *facts;
    return std::nullopt;
}

void PrivatePipewire::crash()
{
    daemon_->signal(SIGKILL);
    static_cast<void>(daemon_->waitForEnd(Milliseconds{5000}));
    sessionManager_.reset();
    daemon_.reset();
}

bool PrivatePipewire::startAgain(std::string& reason)
{
    return startPrograms(reason);
}

std::unique_ptr<Process> VirtualDevice::startProgram(const PrivatePipewire& pipewire, const std::string& name,
                                                     const std::string& id, const std::vector<std::string>& arguments,
                                                     std::string& reason)
{
    Process::Options options;
    options.environment = pipewire.environment();
    options.outputFile = std::filesystem::path(pipewire.runtimeFolder()) / (id + ".log");
    options.isSpokenWith = true;
    auto program = Process::start(name, arguments, options, reason);
    if (!program)
        return nullptr;
    VirtualDevice device(std::move(program));
    if (device.waitFor("plugged", Milliseconds{10'000}))
        return std::move(device.program_);
    reason = name + " does not start: " + device.program_->output();
    return nullptr;
}

bool VirtualDevice::waitFor(const std::string& text, Milliseconds patience)
{
    return waitForLine([&text](const std::string& line) { return line == text; }, patience).has_value();
}

std::optional<std::string> VirtualDevice::waitForLine(const std::function<bool(const std::string&)>& isMeant,
                                                      Milliseconds patience)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (true) {
        const auto left = std::chrono::duration_cast<Milliseconds>(end - std::chrono::steady_clock::now());
        std::optional<std::string> line = program_->readLine(left);
        if (!line || isMeant(*line))
            return line;
    }
}

void VirtualDevice::crash()
{
    program_->signal(SIGKILL);
    static_cast<void>(program_->waitForEnd(Milliseconds{5000}));
}

std::optional<std::chrono::steady_clock::time_point> VirtualCamera::showColor(const std::string& color,
                                                                              Milliseconds patience)
{
    const std::string answer = "shown ";
    tell("show " + color);
    const auto line =
        waitForLine([&](const std::string& candidate) { return candidate.starts_with(answer); }, patience);
    if (!line)
        return std::nullopt;
    return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(std::stoll(line->substr(answer.size()))));
}

std::unique_ptr<VirtualCamera> VirtualCamera::start(const PrivatePipewire& pipewire, const Options& options,
                                                    std::string& reason)
{
    std::vector<std::string> arguments{"--id", options.id, "--name", options.name};
    if (!options.picture.empty())
        arguments.insert(arguments.end(), {"--picture", options.picture});
    arguments.insert(arguments.end(), options.more.begin(), options.more.end());
    arguments.insert(arguments.end(), options.formats.begin(), options.formats.end());
    auto program = startProgram(pipewire, "nimbrale_virtual_camera", options.id, arguments, reason);
    return program ? std::unique_ptr<VirtualCamera>(new VirtualCamera(std::move(program))) : nullptr;
}

std::unique_ptr<VirtualSound> VirtualSound::start(const PrivatePipewire& pipewire, const Options& options,
                                                  std::string& reason)
{
    std::vector<std::string> arguments{options.kind, "--id", options.id, "--name", options.name};
    arguments.insert(arguments.end(), options.more.begin(), options.more.end());
    auto program = startProgram(pipewire, "nimbrale_virtual_sound", options.id, arguments, reason);
    return program ? std::unique_ptr<VirtualSound>(new VirtualSound(std::move(program))) : nullptr;
}

std::optional<VirtualSound::Clock> VirtualSound::waitForClock(const std::function<bool(const Clock&)>& isMeant,
                                                              Milliseconds patience)
{
    Clock clock;
    const auto line = waitForLine(
        [&](const std::string& candidate) {
            std::string word;
            return bool(std::istringstream(candidate) >> word >> clock.driver >> clock.rate >> clock.quantum) &&
                   word == "clock" && isMeant(clock);
        },
        patience);
    return line ? std::optional(clock) : std::nullopt;
}

} // namespace nimbrale::test
