#include "tests/support/process.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace nimbrale::test {

namespace {

std::vector<char*> pointersTo(std::vector<std::string>& strings)
{
    std::vector<char*> pointers;
    for (std::string& string : strings)
        pointers.push_back(string.data());
    pointers.push_back(nullptr);
    return pointers;
}

void closeIfOpen(int& descriptor)
{
    if (descriptor >= 0)
        close(descriptor);
    descriptor = -1;
}

struct Pipe {
    int readEnd = -1;
    int writeEnd = -1;

    Pipe()
    {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            return;
        readEnd = ends[0];
        writeEnd = ends[1];
    }
    ~Pipe()
    {
        closeIfOpen(readEnd);
        closeIfOpen(writeEnd);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    [[nodiscard]] bool isOpen() const { return readEnd >= 0; }
};

int descriptorFor(const std::filesystem::path& outputFile)
{
    const std::string path = outputFile.empty() ? "/dev/null" : outputFile.string();
    return open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
}

} // namespace

std::unique_ptr<Process> Process::start(const std::string& program, const std::vector<std::string>& arguments,
                                        const Options& options, std::string& error)
{
    const std::string path = findProgram(program);
    if (path.empty()) {
        error = program + " is not installed";
        return nullptr;
    }
    std::vector<std::string> command{path};
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::vector<std::string> variables;
    for (const auto& [name, value] : options.environment)
        variables.push_back(name + "=" + value);
    const std::vector<char*> commandPointers = pointersTo(command);
    const std::vector<char*> variablePointers = pointersTo(variables);

    Pipe toProgram;
    Pipe fromProgram;
    Pipe startFailure;
    int output = descriptorFor(options.outputFile);
    int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (!toProgram.isOpen() || !fromProgram.isOpen() || !startFailure.isOpen() || output < 0 || nothing < 0) {
        error = "no pipes for " + program + ": " + std::strerror(errno);
        closeIfOpen(output);
        closeIfOpen(nothing);
        return nullptr;
    }

    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent)
            _exit(127);
        dup2(options.isSpokenWith ? toProgram.readEnd : nothing, STDIN_FILENO);
        dup2(options.isSpokenWith ? fromProgram.writeEnd : output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        execve(path.c_str(), commandPointers.data(), variablePointers.data());
        const int reason = errno;
        [[maybe_unused]] const ssize_t written = ::write(startFailure.writeEnd, &reason, sizeof reason);
        _exit(127);
    }
    closeIfOpen(output);
    closeIfOpen(nothing);
    if (child < 0) {
        error = "cannot start " + program + ": " + std::strerror(errno);
        return nullptr;
    }
    setpgid(child, child);
    closeIfOpen(startFailure.writeEnd);
    int reason = 0;
    if (::read(startFailure.readEnd, &reason, sizeof reason) == sizeof reason) {
        waitpid(child, nullptr, 0);
        error = "cannot start " + program + ": " + std::strerror(reason);
        return nullptr;
    }
    std::unique_ptr<Process> process(new Process(child, options.outputFile, -1, -1));
    if (options.isSpokenWith) {
        std::swap(process->input_, toProgram.writeEnd);
        std::swap(process->output_, fromProgram.readEnd);
    }
    return process;
}

Process::Process(pid_t pid, std::filesystem::path outputFile, int input, int output)
    : pid_(pid), outputFile_(std::move(outputFile)), input_(input), output_(output)
{}

Process::~Process()
{
    terminate();
    closeIfOpen(input_);
    closeIfOpen(output_);
}

bool Process::reap(bool block)
{
    if (exitCode_)
        return true;
    int status = 0;
    if (waitpid(pid_, &status, block ? 0 : WNOHANG) != pid_)
        return false;
    exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return true;
}

bool Process::isRunning()
{
    return !reap(false);
}

std::optional<int> Process::waitForEnd(Milliseconds timeout)
{
    if (!waitUntil([this] { return !isRunning(); }, timeout))
        return std::nullopt;
    return exitCode_;
}

void Process::signal(int number)
{
    if (isRunning())
        kill(pid_, number);
}

std::optional<int> Process::terminate(Milliseconds patience)
{
    const bool wasRunning = isRunning();
    // The group may have members left after its leader ended.
    kill(-pid_, SIGTERM);
    if (wasRunning && !waitForEnd(patience)) {
        kill(-pid_, SIGKILL);
        reap(true);
    }
    kill(-pid_, SIGKILL);
    return exitCode_;
}

std::string Process::output() const
{
    const std::ifstream file(outputFile_);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

bool Process::waitForOutput(const std::string& text, Milliseconds timeout)
{
    return waitUntil([&] { return output().find(text) != std::string::npos; }, timeout);
}

void Process::write(const std::string& text)
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = ::write(input_, text.data() + done, text.size() - done);
        if (written <= 0)
            return;
        done += static_cast<std::size_t>(written);
    }
}

std::optional<std::string> Process::readLine(Milliseconds timeout)
{
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (true) {
        const std::size_t newline = unread_.find('\n');
        if (newline != std::string::npos) {
            std::string line = unread_.substr(0, newline);
            unread_.erase(0, newline + 1);
            return line;
        }
        const auto left = std::chrono::duration_cast<Milliseconds>(end - std::chrono::steady_clock::now());
        pollfd waiting{output_, POLLIN, 0};
        if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) <= 0)
            return std::nullopt;
        std::array<char, 4096> buffer{};
        const ssize_t count = ::read(output_, buffer.data(), buffer.size());
        if (count <= 0)
            return std::nullopt;
        unread_.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

std::string findProgram(const std::string& name)
{
    if (name.find('/') != std::string::npos)
        return access(name.c_str(), X_OK) == 0 ? name : std::string();
    std::vector<std::string> folders{buildFolder().string()};
    const char* const set = std::getenv("PATH");
    std::istringstream search(set ? set : "/usr/local/bin:/usr/bin:/bin");
    for (std::string folder; std::getline(search, folder, ':');)
        folders.push_back(folder);
    for (const std::string& folder : folders) {
        const std::string path = folder + "/" + name;
        std::error_code ignored;
        if (std::filesystem::is_regular_file(path, ignored) && access(path.c_str(), X_OK) == 0)
            return path;
    }
    return {};
}

std::filesystem::path buildFolder()
{
    return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

void sleepFor(Milliseconds duration)
{
    std::this_thread::sleep_for(duration);
}

} // namespace nimbrale::test
