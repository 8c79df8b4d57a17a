#include "recording/screen_recorder.h"

#include "platform/log.h"
#include "recording/microphone_choice.h"

#include <QCoreApplication>
#include <QDateTime>

#include <algorithm>
#include <utility>
#include <vector>

namespace nimbrale {

namespace {

using Room = std::optional<std::uint64_t>;

QString translated(const char* text)
{
    return QCoreApplication::translate("ScreenRecorder", text);
}

StreamConfiguration streamConfiguration(const MovieVideo& video, bool systemAudio)
{
    StreamConfiguration configuration;
    configuration.width = video.width;
    configuration.height = video.height;
    // The display may become another size; its whole picture then stands in the movie's.
    configuration.preservesAspectRatio = true;
    configuration.minimumFrameInterval = {1, video.expectedFrameRate};
    configuration.showsCursor = false;
    configuration.queueDepth = 6;
    configuration.readsPixels = true;
    if (systemAudio) {
        configuration.audio.emplace();
        configuration.audio->excludesOwnAudio = true;
    }
    return configuration;
}

} // namespace

std::shared_ptr<ScreenRecorder> ScreenRecorder::create(Services services)
{
    return std::shared_ptr<ScreenRecorder>(new ScreenRecorder(std::move(services)));
}

ScreenRecorder::ScreenRecorder(Services services) : services_(std::move(services)) {}

ScreenRecorder::~ScreenRecorder()
{
    if (state_ == State::recording)
        finish();
    release();
}

void ScreenRecorder::start(DisplayID displayID, const Options& options, StartCompletion completion)
{
    if (state_ != State::idle)
        return;
    state_ = State::starting;
    ++round_;
    displayID_ = displayID;
    options_ = options;
    startCompletion_ = std::move(completion);
    if (!options.microphoneID) {
        findDisplay();
        return;
    }
    services_.microphones.requestAccess([weak = weak_from_this(), round = round_](bool isGranted) {
        const auto self = weak.lock();
        if (self && self->state_ == State::starting && self->round_ == round)
            self->microphoneAnswered(isGranted);
    });
}

void ScreenRecorder::microphoneAnswered(bool isGranted)
{
    if (isGranted)
        findDisplay();
    else
        failStart(RecorderError::microphoneDenied());
}

void ScreenRecorder::findDisplay()
{
    services_.screenCapture.shareableContent(
        [weak = weak_from_this(), round = round_](const Result<ShareableContent>& content) {
            const auto self = weak.lock();
            if (!self || self->state_ != State::starting || self->round_ != round)
                return;
            if (!content) {
                self->failStart(RecorderError::failed(content.error().message));
                return;
            }
            const auto display =
                std::find_if(content->displays.begin(), content->displays.end(),
                             [&](const CaptureDisplay& candidate) { return candidate.displayID == self->displayID_; });
            if (display == content->displays.end())
                self->failStart(RecorderError::noScreen());
            else
                self->prepare(*display);
        });
}

void ScreenRecorder::prepare(const CaptureDisplay& display)
{
    const std::optional<Screen> screen = findScreen(services_.screens, display.displayID);
    const MovieSize size =
        movieSize(display.width, display.height, screen ? screen->backingScaleFactor : 1, options_.quality);
    const MovieVideo video = movieVideo(size, options_.framerate, options_.quality);
    services_.movies.prepare(video, [weak = weak_from_this(), round = round_, video] {
        const auto self = weak.lock();
        if (self && self->state_ == State::starting && self->round_ == round)
            self->build(video);
    });
}

void ScreenRecorder::build(const MovieVideo& video)
{
    const auto microphone = chooseMicrophone(services_.microphones, options_.microphoneID);
    if (!microphone) {
        failStart(microphone.error());
        return;
    }
    video_ = video;
    chosenMicrophone_ = *microphone;
    startPatience_.emplace(services_.mainQueue, [this] { failStart(RecorderError::noAnswerOf(options_.folder)); });
    askForRoom();
}

void ScreenRecorder::askForRoom()
{
    startQuestion_ = disk_.ask<Room>(
        [freeSpace = services_.freeSpace, folder = options_.folder] { return freeSpace(folder); },
        [this](Room room) {
            // Nothing would be left to end the movie with.
            if (room.value_or(roomToKeep) < roomToKeep)
                failStart(RecorderError::notCreated(
                    options_.folder,
                    translated(QT_TRANSLATE_NOOP("ScreenRecorder", "The disk is almost full. Make room there, "
                                                                   "or choose another folder in Settings."))
                        .toStdString()));
            else
                makeMovie();
        });
}

void ScreenRecorder::makeMovie()
{
    MovieSettings settings;
    settings.file = options_.folder / movieFileName(QDateTime::currentDateTime());
    settings.video = video_;
    if (recordsAudio())
        settings.audio.emplace();
    startQuestion_ = services_.movies.create(settings, [this](Result<std::unique_ptr<MovieWriter>> writer) {
        startQuestion_.reset();
        startPatience_.reset();
        if (writer)
            movieMade(*std::move(writer));
        else
            failStart(RecorderError::notCreated(options_.folder, writer.error().message));
    });
}

void ScreenRecorder::movieMade(std::unique_ptr<MovieWriter> writer)
{
    StartResult built = makePipeline(std::move(writer));
    if (built)
        built = makeStream();
    if (built && chosenMicrophone_)
        built = openMicrophone(*chosenMicrophone_);
    if (!built) {
        failStart(built.error());
        return;
    }
    stream_->start([weak = weak_from_this(), round = round_](const Result<void>& result) {
        const auto self = weak.lock();
        if (self && self->state_ == State::starting && self->round_ == round)
            self->captureStarted(result);
    });
}

ScreenRecorder::StartResult ScreenRecorder::makePipeline(std::unique_ptr<MovieWriter> writer)
{
    auto reader = services_.screenCapture.makeSurfaceReader();
    if (!reader) {
        queue_.post([unused = std::shared_ptr(std::move(writer))] { unused->cancel(); });
        return tl::make_unexpected(RecorderError::failed(reader.error().message));
    }
    pipeline_ = std::make_shared<RecordingPipeline>(std::move(writer), std::move(*reader), recordsAudio());
    pipeline_->onFailure = [weak = weak_from_this(), &main = services_.mainQueue](const Error& error) {
        qCCritical(recordingLog, "Recording failed: %s", error.message.c_str());
        main.post([weak, reason = error.message] {
            if (const auto self = weak.lock())
                self->pipelineFailed(reason);
        });
    };
    pipeline_->onStall = [weak = weak_from_this(), &main = services_.mainQueue] {
        qCCritical(recordingLog, "The disk doesn't answer.");
        main.post([weak] {
            if (const auto self = weak.lock())
                self->pipelineStalled();
        });
    };
    return {};
}

ScreenRecorder::StartResult ScreenRecorder::makeStream()
{
    stream_ = services_.screenCapture.makeStream({displayID_, {}}, streamConfiguration(video_, options_.systemAudio),
                                                 [weak = weak_from_this()](const Error& error) {
                                                     if (const auto self = weak.lock())
                                                         self->streamStopped(error);
                                                 });
    Result<void> added = stream_->addOutput(
        OutputType::screen, queue_, [pipeline = pipeline_](const auto& sample) { pipeline->takeScreen(sample); });
    if (added && options_.systemAudio) {
        added = stream_->addOutput(OutputType::audio, queue_, [pipeline = pipeline_](const CaptureSample& sample) {
            if (sample.audio)
                pipeline->takeAudio(*sample.audio, sample.presentationTime);
        });
    }
    if (!added)
        return tl::make_unexpected(RecorderError::failed(added.error().message));
    return {};
}

ScreenRecorder::StartResult ScreenRecorder::openMicrophone(const MicrophoneDevice& device)
{
    auto opened = services_.microphones.open(
        device.id, [&queue = queue_, pipeline = pipeline_](const std::shared_ptr<const AudioBuffer>& audio,
                                                           std::chrono::nanoseconds presentationTime) {
            queue.post([pipeline, audio, presentationTime] { pipeline->takeAudio(*audio, presentationTime); });
        });
    if (!opened) {
        qCCritical(recordingLog, "Couldn't use microphone %s: %s", device.name.c_str(), opened.error().message.c_str());
        return tl::make_unexpected(microphoneNotUsable(device));
    }
    microphone_ = std::move(*opened);
    return {};
}

void ScreenRecorder::captureStarted(const Result<void>& result)
{
    if (!result) {
        failStart(RecorderError::failed(result.error().message));
        return;
    }
    state_ = State::recording;
    startDate_ = services_.mainQueue.now();
    ticks_ = services_.mainQueue.scheduleRepeating(RecordingPipeline::tickInterval, [this] { tick(); });
    if (const StartCompletion completion = std::exchange(startCompletion_, nullptr))
        completion({});
}

void ScreenRecorder::failStart(const RecorderError& error)
{
    const StartCompletion completion = std::exchange(startCompletion_, nullptr);
    if (pipeline_)
        queue_.post([pipeline = pipeline_] { pipeline->cancel(); });
    release();
    state_ = State::idle;
    if (completion)
        completion(tl::make_unexpected(error));
}

void ScreenRecorder::tick()
{
    if (state_ != State::recording) {
        queue_.post([pipeline = pipeline_] { pipeline->lookForStall(); });
        return;
    }
    queue_.post([pipeline = pipeline_, now = services_.mainQueue.now()] { pipeline->tick(now); });
    lookForRoom();
}

void ScreenRecorder::lookForRoom()
{
    if (roomQuestion_)
        return;
    roomQuestion_ = disk_.ask<Room>(
        [freeSpace = services_.freeSpace, folder = options_.folder] { return freeSpace(folder); },
        [this](Room room) {
            roomQuestion_.reset();
            if (room.value_or(roomToKeep) < roomToKeep)
                endByItself(translated(QT_TRANSLATE_NOOP("ScreenRecorder", "The disk is almost full.")).toStdString());
        });
}

void ScreenRecorder::endByItself(const std::string& reason)
{
    if (state_ != State::recording)
        return;
    // Who is told may release the recorder.
    const auto self = shared_from_this();
    if (onEndingByItself)
        onEndingByItself(reason);
    stop();
}

void ScreenRecorder::pipelineFailed(const std::string& reason)
{
    if (state_ != State::finishing)
        endByItself(reason);
    else if (onEndingByItself)
        onEndingByItself(reason);
}

void ScreenRecorder::pipelineStalled()
{
    isStalled_ = true;
    if (state_ == State::recording)
        endByItself(
            translated(QT_TRANSLATE_NOOP("ScreenRecorder", "The recording ended because the disk doesn't answer."))
                .toStdString());
    else if (state_ == State::finishing && onSavingStalled)
        onSavingStalled();
}

void ScreenRecorder::streamStopped(const Error& error)
{
    qCCritical(recordingLog, "Recording stream stopped: %s", error.message.c_str());
    if (state_ == State::starting) {
        failStart(RecorderError::failed(error.message));
        return;
    }
    if (state_ != State::recording)
        return;
    const auto self = shared_from_this();
    if (onEndingByItself)
        onEndingByItself(error.message);
    if (state_ != State::recording)
        return;
    state_ = State::finishing;
    finish();
}

void ScreenRecorder::stop()
{
    if (state_ == State::starting) {
        startCompletion_ = nullptr;
        failStart({});
        return;
    }
    if (state_ != State::recording)
        return;
    state_ = State::finishing;
    stream_->stop([weak = weak_from_this(), round = round_](const Result<void>&) {
        const auto self = weak.lock();
        if (self && self->state_ == State::finishing && self->round_ == round)
            self->finish();
    });
}

// Samples that are on the queue by now belong to the movie.
void ScreenRecorder::finish()
{
    microphone_.reset();
    const auto deliver = [weak = weak_from_this(), &main = services_.mainQueue](const MovieResult& movie) {
        main.post([weak, movie] {
            if (const auto self = weak.lock())
                self->finished(movie);
        });
    };
    queue_.post([pipeline = pipeline_, now = services_.mainQueue.now(), deliver] { pipeline->finish(now, deliver); });
}

void ScreenRecorder::finished(const MovieResult& movie)
{
    release();
    state_ = State::idle;
    if (const auto tell = onFinish)
        tell(movie);
}

void ScreenRecorder::release()
{
    ticks_.reset();
    microphone_.reset();
    stream_.reset();
    startDate_.reset();
    startPatience_.reset();
    startQuestion_.reset();
    roomQuestion_.reset();
    isStalled_ = false;
    // The writer and the reader go on the thread that used them.
    if (pipeline_)
        queue_.post([pipeline = std::exchange(pipeline_, nullptr)]() mutable { pipeline.reset(); });
}

} // namespace nimbrale
