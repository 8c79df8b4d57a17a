#include "recording/recording_pipeline.h"

#include <algorithm>
#include <utility>

namespace nimbrale {

namespace {

/// How long the last picture may stand before it is written once more. Less than the ticks are apart, which come early
/// at times.
constexpr std::chrono::milliseconds longestStill{400};
/// How late sound may come. Where none has come for longer, there is silence: a source may sleep for hours.
constexpr std::chrono::seconds soundLag{1};

} // namespace

RecordingPipeline::RecordingPipeline(std::unique_ptr<MovieWriter> writer, std::unique_ptr<SurfaceReader> reader,
                                     bool recordsAudio)
    : writer_(std::move(writer)), reader_(std::move(reader))
{
    if (recordsAudio)
        mixer_.emplace();
}

void RecordingPipeline::takeScreen(const CaptureSample& sample)
{
    if (isFinishing_ || !sample.surface || sample.status != FrameStatus::complete)
        return;
    leftOut_.reset();
    if (writer_->isReadyForVideo()) {
        appendPicture(sample.surface, sample.presentationTime);
        return;
    }
    // What changed in a picture that is left out comes with the next one that is read. There may be none for long, so
    // it is not forgotten.
    writer_->dropVideo();
    leftOut_ = sample.surface;
}

void RecordingPipeline::appendPicture(const std::shared_ptr<const Surface>& surface, std::chrono::nanoseconds time)
{
    const Result<SurfaceReader::Picture> picture = reader_->read(*surface);
    if (!picture) {
        if (picture.error().code == ErrorCode::temporary)
            leftOut_ = surface;
        else
            fail(picture.error());
        return;
    }
    if (!lastPictureTime_)
        beginSession(time);
    writer_->appendVideo(*picture, time);
    lastPictureTime_ = time;
    checkWriter();
}

void RecordingPipeline::beginSession(std::chrono::nanoseconds time)
{
    writer_->startSession(time);
    lastSoundTime_ = time;
    if (mixer_)
        mixer_->startTime = time;
}

void RecordingPipeline::takeAudio(const AudioBuffer& audio, std::chrono::nanoseconds presentationTime)
{
    if (isFinishing_ || !mixer_ || !lastPictureTime_)
        return;
    addSound(audio, presentationTime);
    checkWriter();
}

void RecordingPipeline::addSound(const AudioBuffer& audio, std::chrono::nanoseconds presentationTime)
{
    mixer_->add(audio, presentationTime);
    lastSoundTime_ = std::max(lastSoundTime_, presentationTime);
    writeMixed(false);
}

void RecordingPipeline::writeMixed(bool flush)
{
    if (const auto mixed = mixer_->output(flush))
        writer_->appendAudio(mixed->audio, mixed->presentationTime);
}

void RecordingPipeline::tick(std::chrono::nanoseconds now)
{
    if (isFinishing_)
        return;
    if (mixer_ && lastPictureTime_ && now - lastSoundTime_ > 2 * soundLag) {
        AudioBuffer silence;
        silence.samples = {0, 0};
        addSound(silence, now - soundLag);
    }
    if (writer_->isReadyForVideo())
        keepPicture(now);
    checkWriter();
    lookForStall();
}

void RecordingPipeline::lookForStall()
{
    if (hasStalled_ || !writer_->isStalled())
        return;
    hasStalled_ = true;
    if (onStall)
        onStall();
}

void RecordingPipeline::keepPicture(std::chrono::nanoseconds now)
{
    if (const std::shared_ptr<const Surface> surface = std::exchange(leftOut_, nullptr)) {
        appendPicture(surface, now);
    } else if (lastPictureTime_ && now - *lastPictureTime_ >= longestStill) {
        writer_->repeatVideo(now);
        lastPictureTime_ = now;
    }
}

void RecordingPipeline::checkWriter()
{
    if (const std::optional<Error> failure = writer_->failure())
        fail(*failure);
}

void RecordingPipeline::fail(const Error& error)
{
    if (!hasFailed_.exchange(true) && onFailure)
        onFailure(error);
}

void RecordingPipeline::finish(std::chrono::nanoseconds now, std::function<void(MovieResult)> completion)
{
    isFinishing_ = true;
    if (!lastPictureTime_) {
        const std::optional<Error> failure = writer_->failure();
        writer_->cancel();
        completion(
            tl::make_unexpected(failure ? RecorderError::failed(failure->message) : RecorderError::nothingRecorded()));
        return;
    }
    if (const std::shared_ptr<const Surface> surface = std::exchange(leftOut_, nullptr))
        appendPicture(surface, now);
    if (mixer_)
        writeMixed(true);
    writer_->finish(now, [this, completion = std::move(completion)](const Result<std::filesystem::path>& movie) {
        // The user is to know that the end of a movie is missing. The writer is there until its completion has run, and
        // this object as long as the writer.
        checkWriter();
        completion(movie.map_error([](const Error& error) { return RecorderError::failed(error.message); }));
    });
    checkWriter();
}

void RecordingPipeline::cancel()
{
    isFinishing_ = true;
    leftOut_.reset();
    writer_->cancel();
}

} // namespace nimbrale
