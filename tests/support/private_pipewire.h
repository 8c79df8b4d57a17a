#pragma once

#include "tests/support/private_bus.h"
#include "tests/support/process.h"

#include <QTemporaryDir>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nimbrale::test {

/// A session's PipeWire of the test's own, with its session manager and a message bus, in a private folder. It has no
/// hardware: what it knows are the test's own programs. Ends with this object.
class PrivatePipewire {
public:
    /// What is not installed, or nothing.
    [[nodiscard]] static std::string missing();
    /// Null, with the reason, when it does not start.
    [[nodiscard]] static std::unique_ptr<PrivatePipewire> start(std::string& reason);
    ~PrivatePipewire();
    PrivatePipewire(const PrivatePipewire&) = delete;
    PrivatePipewire& operator=(const PrivatePipewire&) = delete;

    /// For programs that are to use it.
    [[nodiscard]] Environment environment() const;
    /// The folder with the daemon's socket.
    [[nodiscard]] std::string runtimeFolder() const;
    [[nodiscard]] pid_t daemon() const { return daemon_->pid(); }

    /// Whether a node of that name is there now; `reason` tells why nobody can say.
    [[nodiscard]] std::optional<bool> hasNode(const std::string& name, std::string& reason) const;

    /// The names of the programs' streams that play; `reason` tells why nobody can say.
    [[nodiscard]] std::optional<std::vector<std::string>> players(std::string& reason) const;
    /// "running", "idle" or "suspended"; `reason` tells why nobody can say.
    [[nodiscard]] std::optional<std::string> nodeState(const std::string& name, std::string& reason) const;

    /// The daemon crashes, and the session manager ends with it.
    void crash();
    /// Starts both again.
    [[nodiscard]] bool startAgain(std::string& reason);
    /// The session manager crashes and the daemon goes on without one.
    void crashSessionManager();
    [[nodiscard]] bool startSessionManager(std::string& reason);

private:
    PrivatePipewire() = default;
    [[nodiscard]] bool startPrograms(std::string& reason);
    /// What the daemon's control program prints; absent, with the reason, where it fails.
    [[nodiscard]] std::optional<std::string> control(const std::vector<std::string>& arguments,
                                                     std::string& reason) const;

    QTemporaryDir home_;
    std::unique_ptr<PrivateBus> bus_;
    std::unique_ptr<Process> daemon_;
    std::unique_ptr<Process> sessionManager_;
};

/// A device on it, of another program that is spoken with.
class VirtualDevice {
public:
    void tell(const std::string& command) { program_->write(command + "\n"); }
    /// Waits until it says so. What it said before is skipped.
    [[nodiscard]] bool waitFor(const std::string& text, Milliseconds patience = Milliseconds{5000});
    /// Ends as a crashed program does.
    void crash();

protected:
    explicit VirtualDevice(std::unique_ptr<Process> program) : program_(std::move(program)) {}
    /// Null, with the reason, when the program does not start or plugs nothing in. `id` names its log.
    [[nodiscard]] static std::unique_ptr<Process> startProgram(const PrivatePipewire& pipewire, const std::string& name,
                                                               const std::string& id,
                                                               const std::vector<std::string>& arguments,
                                                               std::string& reason);
    /// The first line that is meant; absent when it does not come.
    [[nodiscard]] std::optional<std::string> waitForLine(const std::function<bool(const std::string&)>& isMeant,
                                                         Milliseconds patience);

private:
    std::unique_ptr<Process> program_;
};

/// A camera on it. What can be told: "plug", "unplug", "offer FORMAT:WIDTHxHEIGHT@RATE", "fault NAME" or "show COLOR".
/// It says "plugged", "unplugged", "streaming FORMAT:WIDTHxHEIGHT" or "paused".
class VirtualCamera final : public VirtualDevice {
public:
    struct Options {
        /// The camera's identifier.
        std::string id = "test-camera";
        /// What the user knows it by.
        std::string name = "Test camera";
        /// Each like "YUY2:1280x720@30", of YUY2, UYVY, NV12, I420, BGRx and MJPG.
        std::vector<std::string> formats = {"YUY2:320x180@30"};
        /// Shown instead of stripes that move; empty for the stripes.
        std::string picture = {};
        /// More options of the program.
        std::vector<std::string> more = {};
    };

    /// Plugged in already. Null, with the reason, when it does not start.
    [[nodiscard]] static std::unique_ptr<VirtualCamera> start(const PrivatePipewire& pipewire, const Options& options,
                                                              std::string& reason);

    /// Shows pictures of that color from now on: when it wrote the first of them, if it did within the patience.
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point>
    showColor(const std::string& color, Milliseconds patience = Milliseconds{2000});

private:
    using VirtualDevice::VirtualDevice;
};

/// A loudspeaker, a microphone or a program that plays on it. What can be told: "plug" or "unplug". It says "plugged"
/// or "unplugged", and a microphone "heard" or "unheard" when somebody begins or ends to listen.
class VirtualSound final : public VirtualDevice {
public:
    struct Options {
        /// "sink", "microphone" or "player".
        std::string kind = "microphone";
        std::string id = "test-microphone";
        /// What the user knows it by.
        std::string name = "Test microphone";
        /// More options of the program.
        std::vector<std::string> more = {};
    };

    /// Plugged in already. Null, with the reason, when it does not start.
    [[nodiscard]] static std::unique_ptr<VirtualSound> start(const PrivatePipewire& pipewire, const Options& options,
                                                             std::string& reason);

    /// What drives a microphone or a player in the graph.
    struct Clock {
        int driver = 0; ///< that node's number
        int rate = 0;
        int quantum = 0;
    };
    /// The next clock that is meant, of those that it was driven by since the last question. What it said before is
    /// skipped.
    [[nodiscard]] std::optional<Clock> waitForClock(const std::function<bool(const Clock&)>& isMeant,
                                                    Milliseconds patience = Milliseconds{5000});

private:
    using VirtualDevice::VirtualDevice;
};

} // namespace nimbrale::test
