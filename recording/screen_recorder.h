#pragma once

#include "platform/audio_sources.h"
#include "platform/disk_questions.h"
#include "platform/main_queue.h"
#include "platform/movie_writer.h"
#include "platform/screen_capture.h"
#include "platform/screens.h"
#include "platform/serial_queue.h"
#include "recording/movie_format.h"
#include "recording/recorder_error.h"
#include "recording/recording_pipeline.h"
#include "settings/app_settings.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace nimbrale {

/// Records what the application's own display shows, with the microphone and the sound that the computer plays, to a
/// movie. One recording at a time. Main thread only; samples are handled on a queue of its own.
class ScreenRecorder : public std::enable_shared_from_this<ScreenRecorder> {
public:
    struct Options {
        /// Where the movie goes.
        std::filesystem::path folder;
        AppSettings::RecordingQuality quality = AppSettings::RecordingQuality::standard;
        /// Pictures per second at most.
        std::int64_t framerate = 30;
        /// Absent: no microphone. Empty, or not there: the default one.
        std::optional<std::string> microphoneID = {};
        bool systemAudio = false;

        bool operator==(const Options&) const = default;
    };

    /// What the recorder works with; all must outlive it.
    struct Services {
        MainQueue& mainQueue;
        Screens& screens;
        ScreenCapture& screenCapture;
        Microphones& microphones;
        Movies& movies;
        /// The bytes that this user may still write to the folder's file system; absent where that cannot be told. Runs
        /// on threads of the recorder's, may wait, and may even do so when the recorder is gone.
        std::function<std::optional<std::uint64_t>(const std::filesystem::path& folder)> freeSpace;
    };

    using StartResult = tl::expected<void, RecorderError>;
    using StartCompletion = std::function<void(const StartResult& result)>;
    using MovieResult = RecordingPipeline::MovieResult;

    /// No recording begins with less room on the disk than this, and one that goes on ends in order there: what is
    /// still to be written and the movie's index fit in it.
    static constexpr std::uint64_t roomToKeep = std::uint64_t{64} << 20;

    [[nodiscard]] static std::shared_ptr<ScreenRecorder> create(Services services);
    /// Saves what is being recorded, untold, before it returns, as long as the disk answers.
    ~ScreenRecorder();
    ScreenRecorder(const ScreenRecorder&) = delete;
    ScreenRecorder& operator=(const ScreenRecorder&) = delete;

    /// Called once for each recording that was started, when it is over: with the movie, or why there is none.
    std::function<void(const MovieResult& movie)> onFinish;
    /// The recording ends by itself, or ended before it was told to, and why, in words for the user; `onFinish`
    /// follows.
    std::function<void(const std::string& reason)> onEndingByItself;

    /// The recording is over, but the disk that its movie is saved to has not answered for ten seconds. Told once,
    /// where `onEndingByItself` has not told it already; `onFinish` follows when the disk answers.
    std::function<void()> onSavingStalled;

    /// Starts a recording of that display. Ignored while busy or recording. `completion` is called once, later, on the
    /// main queue or within a call of the system's; after an error there is no `onFinish`.
    void start(DisplayID displayID, const Options& options, StartCompletion completion);
    /// Ends the recording. Ignored while none runs. A start under way is given up, without its completion.
    void stop();

    /// A recording is being started or finished.
    [[nodiscard]] bool isBusy() const { return state_ == State::starting || state_ == State::finishing; }
    [[nodiscard]] bool isRecording() const { return state_ == State::recording; }
    [[nodiscard]] bool isFinishing() const { return state_ == State::finishing; }
    /// The disk that the movie is written to has not answered for ten seconds.
    [[nodiscard]] bool isStalled() const { return isStalled_; }
    /// When the recording began, on the main queue's clock; absent while none runs.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> startDate() const { return startDate_; }

private:
    enum class State { idle, starting, recording, finishing };

    explicit ScreenRecorder(Services services);

    void microphoneAnswered(bool isGranted);
    void findDisplay();
    void prepare(const CaptureDisplay& display);
    void build(const MovieVideo& video);
    void askForRoom();
    void makeMovie();
    void movieMade(std::unique_ptr<MovieWriter> writer);
    [[nodiscard]] bool recordsAudio() const { return options_.microphoneID || options_.systemAudio; }
    [[nodiscard]] StartResult makePipeline(std::unique_ptr<MovieWriter> writer);
    [[nodiscard]] StartResult makeStream();
    [[nodiscard]] StartResult openMicrophone(const MicrophoneDevice& device);
    void captureStarted(const Result<void>& result);
    void failStart(const RecorderError& error);

    void tick();
    void lookForRoom();
    void pipelineStalled();
    void endByItself(const std::string& reason);
    void pipelineFailed(const std::string& reason);
    void streamStopped(const Error& error);
    void finish();
    void finished(const MovieResult& movie);
    void release();

    Services services_;
    State state_ = State::idle;
    /// Counts starts, so that an answer to one that was given up is known.
    int round_ = 0;
    DisplayID displayID_ = 0;
    Options options_;
    MovieVideo video_;
    std::optional<MicrophoneDevice> chosenMicrophone_;
    StartCompletion startCompletion_;
    std::optional<std::chrono::nanoseconds> startDate_;
    std::unique_ptr<Timer> ticks_;
    bool isStalled_ = false;
    DiskQuestions disk_{services_.mainQueue, "Nimbrale.room"};
    /// Questions under way: of a start, and of a recording.
    Subscription startQuestion_;
    DiskQuestions::Asked roomQuestion_;
    std::optional<DiskPatience> startPatience_;
    /// Ends, with what it has to do, after what posts to it.
    SerialQueue queue_{"Nimbrale.recording"};
    std::shared_ptr<RecordingPipeline> pipeline_;
    std::unique_ptr<CaptureStream> stream_;
    std::unique_ptr<OpenAudioSource> microphone_;
};

} // namespace nimbrale
