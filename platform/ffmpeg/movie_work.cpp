#include "platform/ffmpeg/movie_work.h"

#include "platform/ffmpeg/movie_index.h"
#include "platform/log.h"

#include <utility>

namespace nimbrale::ffmpeg {

MovieWork::MovieWork(MoviePlace place, std::unique_ptr<MovieEncoding> encoding, std::chrono::milliseconds patience)
    : place_(std::move(place)), encoding_(std::move(encoding)), stall_(patience)
{}

void MovieWork::postPicture(Step step)
{
    ++waiting_;
    queue_.post([self = shared_from_this(), step = std::move(step)] {
        self->encode(step);
        --self->waiting_;
    });
}

void MovieWork::postSound(Step step)
{
    queue_.post([self = shared_from_this(), step = std::move(step)] {
        self->encode(step);
        if (!self->isSoundPosted_)
            self->encodeSound();
    });
}

void MovieWork::encodeSound()
{
    encode([](MovieEncoding& encoding) { return encoding.encodeSound(); });
    isSoundPosted_ = isEncoding() && encoding_->hasSound();
    if (isSoundPosted_)
        queue_.post([self = shared_from_this()] { self->encodeSound(); });
}

void MovieWork::postFinish(std::chrono::nanoseconds end, MovieWriter::Completion completion)
{
    {
        const std::lock_guard lock(mutex_);
        isFinishing_ = true;
    }
    {
        const std::lock_guard lock(completionMutex_);
        completion_ = std::move(completion);
    }
    queue_.post([self = shared_from_this(), end] { self->complete(self->finish(end)); });
}

void MovieWork::postRemoval()
{
    isDiscarded_ = true;
    queue_.post([self = shared_from_this()] {
        const StallWatch::Work work(self->stall_);
        self->encoding_.reset();
        self->place_.remove();
    });
}

void MovieWork::abandon()
{
    queue_.waitWhile([this] { return !isStalled(); });
    const std::lock_guard lock(completionMutex_);
    completion_ = nullptr;
}

void MovieWork::complete(Result<std::filesystem::path> movie)
{
    const std::lock_guard lock(completionMutex_);
    if (const auto completion = std::exchange(completion_, nullptr))
        completion(std::move(movie));
}

bool MovieWork::isEncoding() const
{
    return encoding_ && !isDiscarded_ && !isBroken_;
}

void MovieWork::encode(const Step& step)
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

void MovieWork::noteFailure(Error error)
{
    const std::lock_guard lock(mutex_);
    // Before the end, whoever records asks for it.
    if (isFinishing_)
        qCWarning(recordingLog, "The end of a movie is missing: %s", error.message.c_str());
    if (!failure_)
        failure_ = std::move(error);
}

std::optional<Error> MovieWork::failure() const
{
    const std::lock_guard lock(mutex_);
    return failure_;
}

bool MovieWork::isStalled()
{
    const std::lock_guard lock(stallMutex_);
    // The only other thing that is waited for, an encoder on a graphics card, gives up sooner by itself.
    return stall_.isStalled(std::chrono::steady_clock::now());
}

Result<std::filesystem::path> MovieWork::finish(std::chrono::nanoseconds end)
{
    if (encoding_->hasPicture())
        encode([&](MovieEncoding& encoding) { return encoding.finish(end); });
    if (const std::size_t dropped = dropped_; dropped > 0)
        qCWarning(recordingLog, "%zu pictures are missing in a movie: they could not be encoded in time.", dropped);
    return makeMovie();
}

Result<std::filesystem::path> MovieWork::makeMovie()
{
    const StallWatch::Work work(stall_);
    // Nobody uses the file any more when the encoding is gone.
    encoding_.reset();
    const Result<FinalizedMovie> finalized = finalizeMovie(place_);
    if (!finalized)
        return tl::make_unexpected(finalized.error());
    if (*finalized == FinalizedMovie::empty) {
        place_.remove();
        return fail(ErrorCode::permanent, "The movie couldn't be saved.");
    }
    return place_.publish();
}

} // namespace nimbrale::ffmpeg
