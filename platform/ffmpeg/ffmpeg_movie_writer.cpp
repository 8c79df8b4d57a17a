#include "platform/ffmpeg/ffmpeg_movie_writer.h"

#include "platform/ffmpeg/movie_index.h"
#include "platform/log.h"

#include <algorithm>

namespace nimbrale::ffmpeg {

namespace {

using std::chrono::nanoseconds;

/// Half a second of pictures rides out a busy moment; of large ones fewer, for the memory's sake.
std::size_t queueCapacityFor(const MovieVideo& video)
{
    constexpr std::int64_t memory = 96 << 20;
    const std::int64_t picture = std::int64_t{video.width} * video.height * 3 / 2;
    return static_cast<std::size_t>(std::clamp<std::int64_t>(memory / std::max<std::int64_t>(picture, 1), 4, 16));
}

} // namespace

FfmpegMovieWriter::FfmpegMovieWriter(const MovieSettings& settings, MoviePlace place,
                                     std::chrono::milliseconds patienceWithDisk)
    : video_(settings.video), queueCapacity_(queueCapacityFor(settings.video)),
      pictures_(settings.video.width, settings.video.height), place_(std::move(place)), stall_(patienceWithDisk),
      queue_("Nimbrale.movie")
{}

FfmpegMovieWriter::~FfmpegMovieWriter()
{
    if (stage_ == Stage::writing)
        isDiscarded_ = true;
}

Result<std::unique_ptr<MovieWriter>> FfmpegMovieWriter::create(const MovieSettings& settings, const Patience& patience,
                                                               HardwareVideo hardware)
{
    Result<MoviePlace> place = MoviePlace::create(settings.file);
    if (!place)
        return tl::make_unexpected(place.error());
    std::unique_ptr<FfmpegMovieWriter> writer(new FfmpegMovieWriter(settings, *std::move(place), patience.withDisk));
    auto encoding =
        MovieEncoding::create(settings, writer->place_.descriptor(),
                              QueueWatch(writer->queueCapacity_, patience.withEncoder), std::move(hardware));
    if (!encoding) {
        qCWarning(recordingLog, "A movie couldn't be begun: %s", encoding.error().message.c_str());
        writer->place_.remove();
        return tl::make_unexpected(
            MoviePlace::notCreated(encoding.error().code, settings.file, encoding.error().message));
    }
    writer->encoding_ = *std::move(encoding);
    return writer;
}

void FfmpegMovieWriter::startSession(nanoseconds time)
{
    if (start_)
        programmingError("a movie's session was started twice");
    start_ = time;
}

nanoseconds FfmpegMovieWriter::sinceStart(nanoseconds time) const
{
    if (!start_)
        programmingError("something was appended to a movie before its session was started");
    return time - *start_;
}

bool FfmpegMovieWriter::isReadyForVideo() const
{
    return waiting_ < queueCapacity_ && !failure();
}

void FfmpegMovieWriter::appendVideo(const SurfaceReader::Picture& picture, nanoseconds time)
{
    const nanoseconds movieTime = std::max(sinceStart(time), nanoseconds(0));
    if (picture.pixels->width() != video_.width || picture.pixels->height() != video_.height)
        programmingError("a picture of another size than the movie's was appended to it");
    pictures_.noteChanges(picture.changed);
    if (!isReadyForVideo()) {
        dropVideo();
        return;
    }
    ++waiting_;
    queue_.post([this, frame = pictures_.convert(*picture.pixels), movieTime]() mutable {
        encode([&](MovieEncoding& encoding) { return encoding.addPicture(std::move(frame), movieTime, waiting_); });
        --waiting_;
    });
}

void FfmpegMovieWriter::dropVideo()
{
    if (!failure())
        ++dropped_;
}

void FfmpegMovieWriter::repeatVideo(nanoseconds time)
{
    const nanoseconds movieTime = sinceStart(time);
    if (!isReadyForVideo())
        return;
    ++waiting_;
    queue_.post([this, movieTime] {
        encode([&](MovieEncoding& encoding) { return encoding.repeatPicture(movieTime); });
        --waiting_;
    });
}

void FfmpegMovieWriter::appendAudio(const AudioBuffer& audio, nanoseconds time)
{
    const nanoseconds movieTime = sinceStart(time);
    queue_.post([this, audio, movieTime] {
        encode([&](MovieEncoding& encoding) {
            encoding.addSound(audio, movieTime);
            return Result<void>();
        });
        if (!isSoundPosted_)
            encodeSound();
    });
}

void FfmpegMovieWriter::encodeSound()
{
    encode([](MovieEncoding& encoding) { return encoding.encodeSound(); });
    isSoundPosted_ = isEncoding() && encoding_->hasSound();
    // In turns with the pictures that wait.
    if (isSoundPosted_)
        queue_.post([this] { encodeSound(); });
}

bool FfmpegMovieWriter::isEncoding() const
{
    return encoding_ && !isDiscarded_ && !isBroken_;
}

void FfmpegMovieWriter::encode(const std::function<Result<void>(MovieEncoding&)>& step)
{
    if (!isEncoding())
        return;
    const StallWatch::Work work(stall_);
    const bool hadLostVideo = encoding_->hasLostVideo();
    if (Result<void> done = step(*encoding_); !done) {
        // A movie that loses its pictures' encoder still gets sound, and what was encoded.
        isBroken_ = hadLostVideo || !encoding_->hasLostVideo();
        noteFailure(std::move(done.error()));
    }
}

void FfmpegMovieWriter::noteFailure(Error error)
{
    const std::lock_guard lock(mutex_);
    // Before the end, whoever records asks for it.
    if (isFinishing_)
        qCWarning(recordingLog, "The end of a movie is missing: %s", error.message.c_str());
    if (!failure_)
        failure_ = std::move(error);
}

std::optional<Error> FfmpegMovieWriter::failure() const
{
    const std::lock_guard lock(mutex_);
    // The only other thing that is waited for, an encoder on a graphics card, gives up sooner by itself.
    if (!failure_ && stall_.isStalled(std::chrono::steady_clock::now()))
        failure_ = Error{ErrorCode::permanent, "The recording ended because the disk doesn't answer."};
    return failure_;
}

void FfmpegMovieWriter::finish(nanoseconds time, Completion completion)
{
    if (stage_ != Stage::writing)
        programmingError("a movie was finished twice, or after it was cancelled");
    stage_ = Stage::finishing;
    {
        const std::lock_guard lock(mutex_);
        isFinishing_ = true;
    }
    const nanoseconds end = start_ ? time - *start_ : nanoseconds(0);
    queue_.post([this, end, completion = std::move(completion)] { completion(finishMovie(end)); });
}

Result<std::filesystem::path> FfmpegMovieWriter::finishMovie(nanoseconds end)
{
    if (encoding_->hasPicture())
        encode([&](MovieEncoding& encoding) { return encoding.finish(end); });
    // Nobody uses the file any more when the encoding is gone.
    encoding_.reset();
    if (const std::size_t dropped = dropped_; dropped > 0)
        qCWarning(recordingLog, "%zu pictures are missing in a movie: they could not be encoded in time.", dropped);
    const Result<FinalizedMovie> finalized = finalizeMovie(place_);
    if (!finalized)
        return tl::make_unexpected(finalized.error());
    if (*finalized == FinalizedMovie::empty) {
        place_.remove();
        return fail(ErrorCode::permanent, "The movie couldn't be saved.");
    }
    return place_.publish();
}

void FfmpegMovieWriter::cancel()
{
    if (stage_ != Stage::writing)
        return;
    stage_ = Stage::discarded;
    isDiscarded_ = true;
    queue_.post([this] {
        encoding_.reset();
        place_.remove();
    });
}

} // namespace nimbrale::ffmpeg
