#include "platform/ffmpeg/ffmpeg_movie_writer.h"

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

FfmpegMovieWriter::FfmpegMovieWriter(const MovieVideo& video, std::shared_ptr<MovieWork> work)
    : video_(video), pictures_(video.width, video.height), work_(std::move(work))
{}

FfmpegMovieWriter::~FfmpegMovieWriter()
{
    if (stage_ == Stage::writing)
        work_->discard();
    work_->abandon();
}

Result<std::unique_ptr<MovieWriter>> FfmpegMovieWriter::create(const MovieSettings& settings, const Patience& patience,
                                                               HardwareVideo hardware)
{
    Result<MoviePlace> place = MoviePlace::create(settings.file);
    if (!place)
        return tl::make_unexpected(place.error());
    auto encoding =
        MovieEncoding::create(settings, place->descriptor(),
                              QueueWatch(queueCapacityFor(settings.video), patience.withEncoder), std::move(hardware));
    if (!encoding) {
        qCWarning(recordingLog, "A movie couldn't be begun: %s", encoding.error().message.c_str());
        place->remove();
        return tl::make_unexpected(encoding.error());
    }
    auto work = std::make_shared<MovieWork>(*std::move(place), *std::move(encoding), patience.withDisk);
    return std::unique_ptr<MovieWriter>(new FfmpegMovieWriter(settings.video, std::move(work)));
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
    return work_->waiting() < queueCapacityFor(video_) && !failure();
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
    work_->postPicture([&work = *work_, frame = pictures_.convert(*picture.pixels), movieTime](
                           MovieEncoding& encoding) { return encoding.addPicture(frame, movieTime, work.waiting()); });
}

void FfmpegMovieWriter::dropVideo()
{
    if (!failure())
        work_->countDropped();
}

void FfmpegMovieWriter::repeatVideo(nanoseconds time)
{
    const nanoseconds movieTime = sinceStart(time);
    if (isReadyForVideo())
        work_->postPicture([movieTime](MovieEncoding& encoding) { return encoding.repeatPicture(movieTime); });
}

void FfmpegMovieWriter::appendAudio(const AudioBuffer& audio, nanoseconds time)
{
    work_->postSound([audio, movieTime = sinceStart(time)](MovieEncoding& encoding) {
        encoding.addSound(audio, movieTime);
        return Result<void>();
    });
}

std::optional<Error> FfmpegMovieWriter::failure() const
{
    return work_->failure();
}

bool FfmpegMovieWriter::isStalled()
{
    return work_->isStalled();
}

void FfmpegMovieWriter::finish(nanoseconds time, Completion completion)
{
    if (stage_ != Stage::writing)
        programmingError("a movie was finished twice, or after it was cancelled");
    stage_ = Stage::finishing;
    work_->postFinish(start_ ? time - *start_ : nanoseconds(0), std::move(completion));
}

void FfmpegMovieWriter::cancel()
{
    if (stage_ != Stage::writing)
        return;
    stage_ = Stage::discarded;
    work_->postRemoval();
}

} // namespace nimbrale::ffmpeg
