#include "platform/ffmpeg/ffmpeg_movies.h"

#include "platform/disk_questions.h"
#include "platform/ffmpeg/ffmpeg_movie_writer.h"
#include "platform/ffmpeg/hardware_preparation.h"
#include "platform/ffmpeg/movie_recovery.h"

#include <chrono>
#include <list>
#include <mutex>
#include <utility>

namespace nimbrale::ffmpeg {

namespace {

using Writer = Result<std::unique_ptr<MovieWriter>>;

/// For a beginning or a recovery under way. Where one is cut off, the next recovery goes on with what it leaves.
constexpr std::chrono::seconds patienceAtTheEnd{2};

/// A movie that was begun, and is removed unless somebody takes it.
class BegunMovie {
public:
    explicit BegunMovie(Writer writer) : writer_(std::move(writer)) {}
    ~BegunMovie()
    {
        if (writer_ && *writer_)
            (*writer_)->cancel();
    }
    BegunMovie(BegunMovie&& other) noexcept : writer_(std::exchange(other.writer_, nullptr)) {}
    BegunMovie& operator=(BegunMovie&&) = delete;
    BegunMovie(const BegunMovie&) = delete;
    BegunMovie& operator=(const BegunMovie&) = delete;

    [[nodiscard]] Writer take() { return std::exchange(writer_, nullptr); }

private:
    Writer writer_;
};

/// Shared with threads that a disk may hold up; one of them at a time.
struct SharedRecovery {
    std::mutex mutex;
    MovieRecovery recovery;

    std::vector<RecoveredMovie> recover(const std::filesystem::path& folder)
    {
        const std::lock_guard lock(mutex);
        return recovery.recover(folder);
    }
};

class FfmpegMovies final : public Movies {
public:
    FfmpegMovies(MainQueue& mainQueue, HardwareSearch::Means means)
        : hardware_(mainQueue, std::move(means)), disk_(mainQueue, "Nimbrale.movies")
    {}
    ~FfmpegMovies() override { disk_.waitFor(patienceAtTheEnd); }
    FfmpegMovies(const FfmpegMovies&) = delete;
    FfmpegMovies& operator=(const FfmpegMovies&) = delete;

    void prepare(const MovieVideo& video, std::function<void()> completion) override
    {
        hardware_.prepare(video, std::move(completion));
    }

    Subscription create(const MovieSettings& settings, std::function<void(Writer writer)> completion) override
    {
        const auto hardware = std::make_shared<HardwareVideo>(hardware_.take(settings.video));
        return disk_.ask<BegunMovie>(
            [settings, hardware] { return BegunMovie(FfmpegMovieWriter::create(settings, {}, std::move(*hardware))); },
            [completion = std::move(completion)](BegunMovie movie) { completion(movie.take()); });
    }

    void recover(const std::filesystem::path& folder,
                 std::function<void(std::vector<RecoveredMovie> movies)> completion) override
    {
        const auto place = recoveries_.emplace(recoveries_.end());
        *place = disk_.ask<std::vector<RecoveredMovie>>(
            [recovery = recovery_, folder] { return recovery->recover(folder); },
            [this, place, completion = std::move(completion)](const std::vector<RecoveredMovie>& movies) {
                recoveries_.erase(place);
                completion(movies);
            });
    }

private:
    HardwarePreparation hardware_;
    std::shared_ptr<SharedRecovery> recovery_ = std::make_shared<SharedRecovery>();
    DiskQuestions disk_;
    /// Those that are under way.
    std::list<DiskQuestions::Asked> recoveries_;
};

} // namespace

std::unique_ptr<Movies> createFfmpegMovies(MainQueue& mainQueue, HardwareSearch::Means means)
{
    return std::make_unique<FfmpegMovies>(mainQueue, std::move(means));
}

} // namespace nimbrale::ffmpeg
