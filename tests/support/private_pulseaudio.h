#pragma once

#include "tests/support/process.h"
#include "tests/support/tone.h"

#include <QTemporaryDir>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace nimbrale::test {

/// A session's PulseAudio of the test's own, in a private folder, without any hardware. Ends with this object.
class PrivatePulseaudio {
public:
    /// What is not installed, or nothing.
    [[nodiscard]] static std::string missing();
    /// Null, with the reason, when it does not start. `changes` are for the server alone.
    [[nodiscard]] static std::unique_ptr<PrivatePulseaudio> start(std::string& reason, Environment changes = {});
    PrivatePulseaudio(const PrivatePulseaudio&) = delete;
    PrivatePulseaudio& operator=(const PrivatePulseaudio&) = delete;

    /// For programs that are to use it.
    [[nodiscard]] Environment environment() const;
    [[nodiscard]] std::filesystem::path folder() const { return home_.path().toStdString(); }
    [[nodiscard]] pid_t server() const { return server_->pid(); }

    /// Runs its control program to the end: what that printed, or nothing, with the reason, where it fails.
    [[nodiscard]] std::string control(const std::vector<std::string>& arguments, std::string& reason) const;

    /// The server ends, and with it everything that was plugged in.
    void end() { server_.reset(); }
    /// Starts it again, with nothing plugged in.
    [[nodiscard]] bool startAgain(std::string& reason);

private:
    explicit PrivatePulseaudio(Environment changes) : changes_(std::move(changes)) {}

    const Environment changes_;
    QTemporaryDir home_;
    std::unique_ptr<Process> server_;
};

/// A microphone on it, with one channel or two, which hears what the test computes, at its true time.
class PipedMicrophone {
public:
    /// Plugged in already. `sound` is called on a thread of the microphone's own. Null, with the reason, when the
    /// server refuses it. `server` must outlive it.
    [[nodiscard]] static std::unique_ptr<PipedMicrophone> start(const PrivatePulseaudio& server, const std::string& id,
                                                                int channels, Sound sound, std::string& reason);
    ~PipedMicrophone();
    PipedMicrophone(const PipedMicrophone&) = delete;
    PipedMicrophone& operator=(const PipedMicrophone&) = delete;

    /// False, with the reason, where the server refuses it.
    [[nodiscard]] bool plug(std::string& reason);
    [[nodiscard]] bool unplug(std::string& reason);

private:
    PipedMicrophone(const PrivatePulseaudio& server, std::string id, int channels, Sound sound);
    void speak();
    void stop();

    const PrivatePulseaudio& server_;
    const std::string id_;
    const int channels_;
    const Sound sound_;
    std::string module_; ///< its number
    int pipe_ = -1;
    std::atomic<bool> isEnding_ = false;
    std::thread thread_;
};

} // namespace nimbrale::test
