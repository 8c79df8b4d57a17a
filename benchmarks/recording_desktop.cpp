#include "benchmarks/recording_desktop.h"

#include "benchmarks/measure.h"
#include "tests/support/file_manager.h"

#include <algorithm>
#include <csignal>
#include <thread>

namespace nimbrale::benchmarks {

namespace {

constexpr test::Milliseconds patience{15000};
/// What loads with the first pictures does not belong to the steady cost.
constexpr test::Milliseconds settlingTime{1500};
/// Of the quality that the application records in unless told otherwise.
constexpr double bitsPerPixel = 0.1;

} // namespace

RecordingDesktop::RecordingDesktop(const Options& options) : options_(options)
{
    if (const std::string missing = test::MovieFile::missing(); !missing.empty())
        throw Failure(missing);
    if (options.sound == RecordedSound::both)
        startSound();
    desktop_ = startDesktop(options.display);
    videos_ = desktop_->folder() / "home" / "Videos";
    scene_ = test::Scene::start(*desktop_);
    if (!scene_)
        throw Failure("the still window does not show");
    scene_->add("wall", {.geometry = QRect(QPoint(), options.display), .seed = 7});
    if (options.content == RecordedContent::busy)
        startMotion();
    test::sleepFor(settlingTime);
}

void RecordingDesktop::startSound()
{
    std::string reason = test::PrivatePipewire::missing();
    if (!reason.empty())
        throw Failure(reason);
    pipewire_ = test::PrivatePipewire::start(reason);
    if (!pipewire_)
        throw Failure(reason);
    const auto plugIn = [&](const test::VirtualSound::Options& sound) {
        sounds_.push_back(test::VirtualSound::start(*pipewire_, sound, reason));
        if (!sounds_.back())
            throw Failure(reason);
    };
    plugIn({.more = {"--tone", "440"}});
    plugIn({.kind = "sink", .id = "loud", .name = "Loudspeaker"});
    plugIn({.kind = "player", .id = "player", .name = "Player", .more = {"--target", "loud", "--tone", "660"}});
}

void RecordingDesktop::startMotion()
{
    const QSize display = options_.display;
    const QRect page(0, 0, display.width() * 2 / 3, display.height());
    const QRect video(page.right() + 1, display.height() / 3, display.width() / 3, display.height() / 3);
    motion_.push_back(startContent(*desktop_, "page", page, options_.framesPerSecond));
    motion_.push_back(startContent(*desktop_, "video", video, options_.framesPerSecond));
}

void RecordingDesktop::startApplication()
{
    const char* const withSound = options_.sound == RecordedSound::both ? "true" : "false";
    test::Environment changes{{"PATH", test::putFileManager(desktop_->folder(), desktop_->environment().at("PATH"))}};
    if (pipewire_)
        changes.insert({"PIPEWIRE_RUNTIME_DIR", pipewire_->runtimeFolder()});
    std::string reason;
    application_ =
        test::Application::start(*desktop_,
                                 {.region = QRect(QPoint(), options_.display),
                                  .framesPerSecond = options_.framesPerSecond,
                                  .others = {{"recordMicrophone", withSound}, {"recordSystemAudio", withSound}}},
                                 reason, changes);
    if (!application_)
        throw Failure(reason);
    if (!application_->waitForVirtualDisplay(options_.display))
        throw Failure("the display is not shared: " + applicationOutput());
    target_ = desktop_->monitorNamed("Nimbrale")->geometry;
    if (!test::waitUntil([&] { return shower().window != 0; }, patience))
        throw Failure("the display is not shared: " + applicationOutput());
    test::sleepFor(settlingTime);
}

Shower RecordingDesktop::shower() const
{
    return {application_->process().pid(), windowAt(*desktop_, target_.center())};
}

void RecordingDesktop::toggle()
{
    const auto messenger = desktop_->spawn((test::buildFolder() / "nimbrale").string(), {"--toggle-recording"});
    if (!messenger || messenger->waitForEnd(patience) != 0)
        throw Failure("the application was not told to record: " + applicationOutput());
}

void RecordingDesktop::startRecording()
{
    toggle();
    if (!test::waitUntil([&] { return !test::otherFilesIn(videos_).empty(); }, patience))
        throw Failure("nothing is recorded: " + applicationOutput());
    test::sleepFor(settlingTime);
}

test::MovieFile RecordingDesktop::endRecording()
{
    const std::size_t before = test::moviesIn(videos_).size();
    toggle();
    if (!test::waitUntil([&] { return test::moviesIn(videos_).size() > before; }, patience))
        throw Failure("the recording was not saved: " + applicationOutput());
    test::MovieFile movie(test::moviesIn(videos_).back());
    if (!movie.video() || movie.audio().has_value() != (options_.sound == RecordedSound::both))
        throw Failure("the recording lacks something: " + applicationOutput());
    return movie;
}

void RecordingDesktop::endApplication()
{
    static_cast<void>(application_->quit());
    application_.reset();
    if (desktop_->screenSize() != options_.display && !desktop_->resizeScreen(options_.display))
        throw Failure("the X screen cannot shrink");
}

std::vector<std::string> RecordingDesktop::grabArguments() const
{
    const std::string width = std::to_string(options_.display.width());
    const std::string height = std::to_string(options_.display.height());
    const std::string rate = std::to_string(options_.framesPerSecond);
    const auto bits = static_cast<long>(bitsPerPixel * options_.display.width() * options_.display.height() *
                                        options_.framesPerSecond);
    std::vector<std::string> arguments{"-nostdin",    "-y",
                                       "-loglevel",   "error",
                                       "-f",          "x11grab",
                                       "-framerate",  rate,
                                       "-video_size", width + "x" + height,
                                       "-i",          desktop_->displayName() + ".0+0,0"};
    const auto add = [&](std::initializer_list<std::string> more) { arguments.insert(arguments.end(), more); };
    if (options_.sound == RecordedSound::both)
        add({"-re", "-f", "lavfi", "-i", "sine=frequency=440:sample_rate=48000", "-c:a", "aac", "-b:a", "192k", "-ac",
             "2"});
    const int threads = std::clamp(static_cast<int>(std::thread::hardware_concurrency()) / 2, 1, 2);
    add({"-c:v", "libx264", "-preset", "veryfast", "-tune", "zerolatency", "-profile:v", "high", "-pix_fmt",
         "yuv420p"});
    add({"-b:v", std::to_string(bits), "-maxrate", std::to_string(bits * 3 / 2), "-bufsize", std::to_string(bits * 2)});
    add({"-g", std::to_string(2 * options_.framesPerSecond), "-bf", "0", "-threads", std::to_string(threads)});
    // One copy of each picture grabbed, none put in for those that were missed.
    add({"-fps_mode", "passthrough", grabFile().string()});
    return arguments;
}

void RecordingDesktop::startGrab()
{
    std::filesystem::remove(grabFile());
    grab_ = desktop_->spawn("ffmpeg", grabArguments());
    if (!grab_)
        throw Failure("ffmpeg is not installed");
    const auto isWriting = [&] { return std::filesystem::exists(grabFile()) || !grab_->isRunning(); };
    if (!test::waitUntil(isWriting, patience) || !grab_->isRunning())
        throw Failure("ffmpeg does not record: " + grab_->output());
    test::sleepFor(settlingTime);
}

test::MovieFile RecordingDesktop::endGrab()
{
    grab_->signal(SIGINT);
    if (!grab_->waitForEnd(patience))
        throw Failure("ffmpeg does not end");
    test::MovieFile movie(grabFile());
    if (!movie.video())
        throw Failure("ffmpeg has recorded nothing: " + grab_->output());
    return movie;
}

} // namespace nimbrale::benchmarks
