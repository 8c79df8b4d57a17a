#include "platform/ffmpeg/movie_recovery.h"

#include "platform/ffmpeg/movie_index.h"
#include "platform/ffmpeg/movie_place.h"
#include "platform/log.h"

#include <algorithm>
#include <optional>
#include <system_error>

namespace nimbrale::ffmpeg {

namespace {

/// The files of this folder that are named like pieces, in the order of their names.
std::vector<std::filesystem::path> piecesIn(const std::filesystem::path& folder)
{
    std::vector<std::filesystem::path> found;
    std::error_code error;
    std::filesystem::directory_iterator entry(folder, error);
    while (!error && entry != std::filesystem::directory_iterator()) {
        if (entry->path().string().ends_with(MoviePlace::suffix))
            found.push_back(entry->path());
        entry.increment(error);
    }
    if (error && error != std::errc::no_such_file_or_directory)
        qCWarning(recordingLog, "%s cannot be searched: %s", folder.c_str(), error.message().c_str());
    std::sort(found.begin(), found.end());
    return found;
}

/// Nothing where there is nothing to tell.
std::optional<RecoveredMovie> recoverMovie(const std::filesystem::path& pieces)
{
    Result<std::optional<MoviePlace>> claimed = MoviePlace::claim(pieces);
    if (!claimed)
        return RecoveredMovie{pieces, claimed.error()};
    if (!*claimed)
        return std::nullopt;
    MoviePlace& place = **claimed;
    const Result<FinalizedMovie> finalized = finalizeMovie(place);
    if (!finalized)
        return RecoveredMovie{pieces, finalized.error()};
    if (*finalized == FinalizedMovie::empty) {
        qCInfo(recordingLog, "%s held no picture.", pieces.c_str());
        place.remove();
        return std::nullopt;
    }
    place.removeCopy();
    const Result<std::filesystem::path> movie = place.publish();
    if (!movie)
        return RecoveredMovie{pieces, movie.error()};
    return RecoveredMovie{*movie, std::nullopt};
}

} // namespace

std::vector<RecoveredMovie> MovieRecovery::recover(const std::filesystem::path& folder)
{
    std::vector<RecoveredMovie> movies;
    for (const std::filesystem::path& pieces : piecesIn(folder)) {
        std::optional<RecoveredMovie> movie = recoverMovie(pieces);
        if (movie && (!movie->error || reported_.insert(pieces).second))
            movies.push_back(std::move(*movie));
    }
    return movies;
}

} // namespace nimbrale::ffmpeg
