#include "tests/support/private_pulseaudio.h"

#include <csignal>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>
#include <utility>

namespace nimbrale::test {

namespace {

constexpr int sampleRate = 48000;
constexpr int samplesAtATime = sampleRate / 100;
constexpr std::chrono::milliseconds durationAtATime{10};

std::chrono::nanoseconds timeOfSample(std::int64_t sample)
{
    return std::chrono::nanoseconds{sample * std::nano::den / sampleRate};
}

} // namespace

std::string PrivatePulseaudio::missing()
{
    for (const char* const program : {"pulseaudio", "pactl", "pacat"}) {
        if (findProgram(program).empty())
            return std::string(program) + " is not installed";
    }
    return {};
}

std::unique_ptr<PrivatePulseaudio> PrivatePulseaudio::start(std::string& reason, Environment changes)
{
    std::unique_ptr<PrivatePulseaudio> pulseaudio(new PrivatePulseaudio(std::move(changes)));
    return pulseaudio->startAgain(reason) ? std::move(pulseaudio) : nullptr;
}

Environment PrivatePulseaudio::environment() const
{
    return {{"PATH", "/usr/bin:/bin"},
            {"HOME", folder().string()},
            {"XDG_RUNTIME_DIR", folder().string()},
            {"PULSE_SERVER", "unix:" + (folder() / "native").string()},
            {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/no/such/bus"},
            // Nothing that asks the machine's own services, such as the one that gives threads a higher priority.
            {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/no/such/bus"}};
}

bool PrivatePulseaudio::startAgain(std::string& reason)
{
    Process::Options options;
    options.environment = environment();
    options.environment.erase("PULSE_SERVER"); // With it the server believes that another one is there.
    for (const auto& [name, value] : changes_)
        options.environment[name] = value;
    options.outputFile = folder() / "pulseaudio.log";
    server_ = Process::start("pulseaudio",
                             {"--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no", "--realtime=no",
                              "--high-priority=no", "-n", "-L",
                              "module-native-protocol-unix auth-anonymous=1 socket=" + (folder() / "native").string()},
                             options, reason);
    if (!server_)
        return false;
    const auto answers = [&] { return !control({"info"}, reason).empty(); };
    if (waitUntil(answers, Milliseconds{10'000}, Milliseconds{50}))
        return true;
    reason = "pulseaudio does not answer: " + server_->output();
    return false;
}

std::string PrivatePulseaudio::control(const std::vector<std::string>& arguments, std::string& reason) const
{
    Process::Options options;
    options.environment = environment();
    options.outputFile = folder() / "control.log";
    std::error_code ignored;
    std::filesystem::remove(options.outputFile, ignored); // What is printed is appended.
    const auto program = Process::start("pactl", arguments, options, reason);
    if (!program)
        return {};
    const auto code = program->waitForEnd(Milliseconds{5000});
    if (code == 0)
        return program->output() + "\n"; // A command that succeeds may print nothing.
    reason = "pactl fails: " + program->output();
    return {};
}

std::unique_ptr<PipedMicrophone> PipedMicrophone::start(const PrivatePulseaudio& server, const std::string& id,
                                                        int channels, Sound sound, std::string& reason)
{
    std::unique_ptr<PipedMicrophone> microphone(new PipedMicrophone(server, id, channels, std::move(sound)));
    return microphone->plug(reason) ? std::move(microphone) : nullptr;
}

PipedMicrophone::PipedMicrophone(const PrivatePulseaudio& server, std::string id, int channels, Sound sound)
    : server_(server), id_(std::move(id)), channels_(channels), sound_(std::move(sound))
{}

PipedMicrophone::~PipedMicrophone()
{
    stop();
    std::string ignored; // A server that ended has nothing left to be unplugged.
    if (!module_.empty())
        static_cast<void>(server_.control({"unload-module", module_}, ignored));
}

bool PipedMicrophone::plug(std::string& reason)
{
    stop();
    const std::string file = (server_.folder() / (id_ + ".pipe")).string();
    module_ =
        server_.control({"load-module", "module-pipe-source", "file=" + file, "source_name=" + id_, "format=float32le",
                         "rate=" + std::to_string(sampleRate), "channels=" + std::to_string(channels_),
                         "source_properties=device.description='Microphone\\ " + id_ + "'"},
                        reason);
    if (module_.empty())
        return false;
    module_.erase(module_.find_last_not_of('\n') + 1);
    pipe_ = open(file.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (pipe_ < 0) {
        reason = "the microphone's pipe cannot be opened";
        return false;
    }
    thread_ = std::thread([this] { speak(); });
    return true;
}

bool PipedMicrophone::unplug(std::string& reason)
{
    stop();
    return !server_.control({"unload-module", std::exchange(module_, {})}, reason).empty();
}

/// Writes what was heard as soon as it was.
void PipedMicrophone::speak()
{
    sigset_t brokenPipe;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr); // The server may end first.
    std::vector<float> samples(static_cast<std::size_t>(samplesAtATime * channels_));
    auto piece = std::chrono::steady_clock::now().time_since_epoch() / durationAtATime;
    while (!isEnding_) {
        for (std::size_t index = 0; index < samples.size(); ++index) {
            const auto frame = static_cast<std::int64_t>(index) / channels_;
            samples[index] = sound_(timeOfSample(piece * samplesAtATime + frame));
        }
        ++piece;
        std::this_thread::sleep_until(std::chrono::steady_clock::time_point{piece * durationAtATime});
        // A pipe that is full belongs to a server that does not read: that sound is lost.
        static_cast<void>(!write(pipe_, samples.data(), samples.size() * sizeof(float)));
    }
}

void PipedMicrophone::stop()
{
    isEnding_ = true;
    if (thread_.joinable())
        thread_.join();
    isEnding_ = false;
    if (pipe_ >= 0)
        close(pipe_);
    pipe_ = -1;
}

} // namespace nimbrale::test
