#pragma once

#include "tests/support/private_bus.h"
#include "tests/support/process.h"

#include <QTemporaryDir>

#include <chrono>
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

    /// The daemon crashes, and the session manager ends with it.
    void crash();
    /// Starts both again.
    [[nodiscard]] bool startAgain(std::string& reason);

private:
    PrivatePipewire() = default;
    [[nodiscard]] bool startPrograms(std::string& reason);

    QTemporaryDir home_;
    std::unique_ptr<PrivateBus> bus_;
    std::unique_ptr<Process> daemon_;
    std::unique_ptr<Process> sessionManager_;
};

/// A camera on it, of another program.
class VirtualCamera {
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

    /// What can be told: "plug", "unplug", "offer FORMAT:WIDTHxHEIGHT@RATE", "fault NAME" or "show COLOR".
    void tell(const std::string& command) { program_->write(command + "\n"); }
    /// Shows pictures of that color from now on: when it wrote the first of them, if it did within the patience.
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point>
    showColor(const std::string& color, Milliseconds patience = Milliseconds{2000});
    /// Waits until it says so: "plugged", "unplugged", "streaming FORMAT:WIDTHxHEIGHT" or "paused". What it said before
    /// is skipped.
    [[nodiscard]] bool waitFor(const std::string& text, Milliseconds patience = Milliseconds{5000});
    /// Ends as a crashed program does.
    void crash();

private:
    explicit VirtualCamera(std::unique_ptr<Process> program) : program_(std::move(program)) {}

    std::unique_ptr<Process> program_;
};

} // namespace nimbrale::test
