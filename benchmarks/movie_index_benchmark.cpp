// How long a movie of one hour in pieces of a second takes to become an ordinary one, where it lies and by copying it,
// which is what a player's library would do. The file, of half a gigabyte, is made in the folder for temporary files.

#include "platform/ffmpeg/movie_boxes.h"
#include "platform/ffmpeg/movie_index.h"
#include "platform/ffmpeg/movie_remux.h"
#include "tests/unit/platform/ffmpeg/piece_movie.h"

#include <QTemporaryDir>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace nimbrale::ffmpeg {
namespace {

void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "%s\n", what);
    std::exit(1);
}

/// Ten seconds that can follow themselves after `period`: 504 packets of sound.
struct RepeatedPieces {
    static constexpr std::int64_t soundPeriod = 504 * std::int64_t{1024};
    static constexpr std::int64_t picturePeriod = soundPeriod * 15 / 8;
    static constexpr std::int64_t count = 3600 * std::int64_t{48000} / soundPeriod + 1;

    std::vector<std::uint8_t> head;
    std::vector<std::uint8_t> pieces;
    /// Where in the pieces their times are, and by how much they grow.
    std::vector<std::pair<std::size_t, std::int64_t>> times;
};

void findTimes(RepeatedPieces& repeated, Bytes fragment)
{
    const auto parts = readBoxes(fragment);
    int track = 0;
    for (const Box& part : *parts) {
        if (part.type != boxType("traf"))
            continue;
        const auto boxes = readBoxes(part.content);
        const Box* const time = onlyBox(*boxes, boxType("tfdt"));
        const auto offset = static_cast<std::size_t>(time->content.data() - repeated.pieces.data()) + 4;
        repeated.times.emplace_back(offset, track++ == 0 ? RepeatedPieces::picturePeriod : RepeatedPieces::soundPeriod);
    }
}

RepeatedPieces repeatedPieces()
{
    PieceMovieContent content;
    content.end = 10 * std::int64_t{PieceMovieContent::second};
    for (std::int64_t time = 0; time < content.end; time += PieceMovieContent::second / 30)
        content.pictureTimes.push_back(time);
    content.tick = 1000;
    content.isNoise = true;
    content.width = 128;
    content.height = 96;
    const std::vector<std::uint8_t> movie = PieceMovie::make(content);
    const auto boxes = readBoxes(movie);
    require(boxes && boxes->size() > 20, "The pieces were not made.");
    const std::size_t head = (*boxes)[0].whole.size() + (*boxes)[1].whole.size();
    RepeatedPieces repeated;
    repeated.head.assign(movie.begin(), movie.begin() + static_cast<std::ptrdiff_t>(head));
    repeated.pieces.assign(movie.begin() + static_cast<std::ptrdiff_t>(head), movie.end());
    const auto pieces = readBoxes(repeated.pieces);
    for (const Box& piece : *pieces) {
        if (piece.type == boxType("moof"))
            findTimes(repeated, piece.content);
    }
    return repeated;
}

/// One hour in pieces, which can be had back after they were finalized.
class HourInPieces {
public:
    HourInPieces() : path_(folder_.path().toStdString() + "/Hour.mov.unfinished")
    {
        RepeatedPieces repeated = repeatedPieces();
        std::ofstream file(path_, std::ios::binary);
        const auto write = [&](const std::vector<std::uint8_t>& bytes) {
            file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        };
        write(repeated.head);
        for (int i = 0; i < RepeatedPieces::count; ++i) {
            write(repeated.pieces);
            for (const auto& [offset, period] : repeated.times) {
                BoxWriter time;
                time.write64(NumberReader(Bytes(repeated.pieces).subspan(offset)).read64() +
                             static_cast<std::uint64_t>(period));
                std::copy(time.bytes().begin(), time.bytes().end(),
                          repeated.pieces.begin() + static_cast<std::ptrdiff_t>(offset));
            }
        }
        file.close();
        require(file.good(), "There is no room for the pieces.");
        head_ = repeated.head;
        size_ = static_cast<off_t>(std::filesystem::file_size(path_));
        restore();
    }

    [[nodiscard]] MoviePlace place() const
    {
        auto place = MoviePlace::claim(path_);
        require(place && *place, "The pieces cannot be claimed.");
        return std::move(**place);
    }
    [[nodiscard]] double megabytes() const { return static_cast<double>(size_) / 1e6; }
    void restore() const
    {
        const FileDescriptor file(::open(path_.c_str(), O_RDWR | O_CLOEXEC));
        require(::ftruncate(file.get(), size_) == 0 &&
                    ::pwrite(file.get(), head_.data(), head_.size(), 0) == static_cast<ssize_t>(head_.size()) &&
                    ::fsync(file.get()) == 0,
                "The pieces cannot be restored.");
    }
    /// Whether the file is an ordinary movie of an hour.
    static void check(int file)
    {
        AVFormatContext* input = nullptr;
        const std::string name = "/proc/self/fd/" + std::to_string(file);
        require(avformat_open_input(&input, name.c_str(), nullptr, nullptr) == 0, "It cannot be read.");
        const std::int64_t pictures = input->streams[0]->nb_frames;
        require(pictures == 300 * RepeatedPieces::count, "It does not have all pictures.");
        require(input->duration > 3600 * std::int64_t{AV_TIME_BASE}, "It is too short.");
        avformat_close_input(&input);
    }

private:
    QTemporaryDir folder_;
    std::filesystem::path path_;
    std::vector<std::uint8_t> head_;
    off_t size_ = 0;
};

/// Seconds that each took at best.
struct Times {
    double inPlace = 1e9;
    double copy = 1e9;
};

double secondsSince(std::chrono::steady_clock::time_point begin)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void finalizeInPlace(benchmark::State& state, const HourInPieces& hour, Times& times)
{
    while (state.KeepRunning()) {
        const auto begin = std::chrono::steady_clock::now();
        MoviePlace place = hour.place();
        require(finalizeMovie(place) == FinalizedMovie::ordinary, "It was not finalized.");
        times.inPlace = std::min(times.inPlace, secondsSince(begin));
        state.PauseTiming();
        HourInPieces::check(place.descriptor());
        hour.restore();
        state.ResumeTiming();
    }
    state.counters["megabytes"] = hour.megabytes();
}

void copy(benchmark::State& state, const HourInPieces& hour, Times& times)
{
    while (state.KeepRunning()) {
        const auto begin = std::chrono::steady_clock::now();
        const MoviePlace place = hour.place();
        const auto file = place.createCopy();
        require(file && remuxMovie(place.descriptor(), file->get()) && ::fdatasync(file->get()) == 0,
                "It was not copied.");
        times.copy = std::min(times.copy, secondsSince(begin));
        state.PauseTiming();
        HourInPieces::check(file->get());
        place.removeCopy();
        state.ResumeTiming();
    }
    state.counters["times in place"] = times.copy / times.inPlace;
}

} // namespace
} // namespace nimbrale::ffmpeg

int main(int argc, char** argv)
{
    using namespace nimbrale::ffmpeg;
    av_log_set_level(AV_LOG_FATAL);
    const HourInPieces hour;
    Times times;
    const auto add = [](const char* name, auto run) {
        benchmark::RegisterBenchmark(name, run)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
    };
    add("one hour, where it lies", [&](benchmark::State& state) { finalizeInPlace(state, hour, times); });
    add("one hour, by copying it", [&](benchmark::State& state) { copy(state, hour, times); });
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
