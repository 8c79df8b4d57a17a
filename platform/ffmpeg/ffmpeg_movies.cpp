#include "platform/ffmpeg/ffmpeg_movies.h"

#include "platform/ffmpeg/ffmpeg_movie_writer.h"
#include "platform/ffmpeg/hardware_preparation.h"
#include "platform/ffmpeg/movie_recovery.h"
#include "platform/serial_queue.h"

namespace nimbrale::ffmpeg {

namespace {

class FfmpegMovies final : public Movies {
public:
    FfmpegMovies(MainQueue& mainQueue, HardwareSearch::Means means)
        : mainQueue_(mainQueue), hardware_(mainQueue, std::move(means))
    {}

    void prepare(const MovieVideo& video, std::function<void()> completion) override
    {
        hardware_.prepare(video, std::move(completion));
    }

    Result<std::unique_ptr<MovieWriter>> create(const MovieSettings& settings) override
    {
        return FfmpegMovieWriter::create(settings, {}, hardware_.take(settings.video));
    }

    void recover(const std::filesystem::path& folder,
                 std::function<void(std::vector<RecoveredMovie> movies)> completion) override
    {
        worker_.post([this, folder, completion = std::move(completion), alive = std::weak_ptr(alive_)]() mutable {
            auto report = [movies = recovery_.recover(folder), completion = std::move(completion), alive] {
                if (alive.lock())
                    completion(movies);
            };
            mainQueue_.post(std::move(report));
        });
    }

private:
    MainQueue& mainQueue_;
    HardwarePreparation hardware_;
    /// Gone when there is nobody any more to hear of a recovery.
    std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
    /// The worker's alone.
    MovieRecovery recovery_;
    /// Last, so that it ends first.
    SerialQueue worker_{"Nimbrale.movies"};
};

} // namespace

std::unique_ptr<Movies> createFfmpegMovies(MainQueue& mainQueue, HardwareSearch::Means means)
{
    return std::make_unique<FfmpegMovies>(mainQueue, std::move(means));
}

} // namespace nimbrale::ffmpeg
