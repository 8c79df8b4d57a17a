#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace nimbrale::test {

using Environment = std::map<std::string, std::string>;
using Milliseconds = std::chrono::milliseconds;

/// A program that a test started, with everything that it starts in turn (it leads a process group of its own). It does
/// not outlive this object, nor the test process, however that ends. Use from one thread, the one that started it.
class Process {
public:
    struct Options {
        /// The whole environment of the program: nothing is inherited.
        Environment environment;
        /// Where standard output and standard error go, one behind the other; empty drops them.
        std::filesystem::path outputFile;
        /// With true, `write` and `readLine` speak with the program, and only standard error goes to the file.
        bool isSpokenWith = false;
    };

    /// Null, with the reason in `error`, when the program cannot be started.
    [[nodiscard]] static std::unique_ptr<Process> start(const std::string& program,
                                                        const std::vector<std::string>& arguments,
                                                        const Options& options, std::string& error);
    /// As `terminate`.
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] bool isRunning();
    /// Waits for the end: the exit code, or 128 plus the signal's number; absent when it still runs.
    [[nodiscard]] std::optional<int> waitForEnd(Milliseconds timeout);
    /// Sends a signal to the program alone.
    void signal(int number);
    /// Asks the whole group to end, and ends it after the patience given. Returns as `waitForEnd`.
    std::optional<int> terminate(Milliseconds patience = Milliseconds{3000});
    /// What the program has printed so far.
    [[nodiscard]] std::string output() const;
    /// Waits until the output contains the text.
    [[nodiscard]] bool waitForOutput(const std::string& text, Milliseconds timeout);

    /// Only for a program that is spoken with.
    void write(const std::string& text);
    /// The next line without its end; absent on a timeout or when the program closed its output.
    [[nodiscard]] std::optional<std::string> readLine(Milliseconds timeout = Milliseconds{5000});

private:
    Process(pid_t pid, std::filesystem::path outputFile, int input, int output);
    bool reap(bool block);

    pid_t pid_;
    std::filesystem::path outputFile_;
    int input_;
    int output_;
    std::string unread_;
    std::optional<int> exitCode_;
};

/// Polls until the condition holds. False on a timeout.
template <typename Condition>
[[nodiscard]] bool waitUntil(Condition condition, Milliseconds timeout, Milliseconds pause = Milliseconds{10});

/// The path of a program found by PATH; empty when it is not installed.
[[nodiscard]] std::string findProgram(const std::string& name);

/// The folder of the running test program, where the other programs of the build are too.
[[nodiscard]] std::filesystem::path buildFolder();

void sleepFor(Milliseconds duration);

template <typename Condition>
bool waitUntil(Condition condition, Milliseconds timeout, Milliseconds pause)
{
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        sleepFor(pause);
    }
    return true;
}

} // namespace nimbrale::test
