// Any bytes as what a movie's writer has left, or a real movie in pieces with any bytes of it changed and its end cut
// off: it becomes a movie, or stays, or goes because there is no picture in it; and it takes little time.

#include "platform/ffmpeg/movie_index.h"
#include "platform/ffmpeg/movie_recovery.h"
#include "tests/unit/platform/ffmpeg/piece_movie.h"

#include <QString>
#include <QtGlobal>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

using namespace nimbrale;
using namespace nimbrale::ffmpeg;
using FileBytes = std::vector<std::uint8_t>;

/// In memory where that is to be had: each run brings a file to the disk a few times. One for each run, since nothing
/// is cleaned up when the fuzzer ends.
class Folder {
public:
    Folder()
    {
        const bool isMemory = std::filesystem::is_directory("/dev/shm");
        std::string name = (isMemory ? "/dev/shm" : std::filesystem::temp_directory_path().string()) + "/movies-XXXXXX";
        if (mkdtemp(name.data()) == nullptr)
            std::abort();
        path_ = name;
    }
    ~Folder() { std::filesystem::remove_all(path_); }

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

void require(bool holds)
{
    if (!holds)
        std::abort();
}

FileBytes realMovie()
{
    av_log_set_level(AV_LOG_QUIET);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    PieceMovieContent content;
    content.end = 3 * PieceMovieContent::second;
    content.pictureTimes = PieceMovie::irregularTimes(content.end);
    content.tick = 100;
    return PieceMovie::make(content);
}

/// Two bytes say where, one what is put there. The last two bytes of an odd number cut it off.
FileBytes changed(FileBytes movie, const std::uint8_t* data, std::size_t size)
{
    for (; size >= 3; size -= 3, data += 3)
        movie[static_cast<std::size_t>(data[0] << 8 | data[1]) % movie.size()] = data[2];
    if (size == 2)
        movie.resize(static_cast<std::size_t>(data[0] << 8 | data[1]) % movie.size());
    return movie;
}

FileBytes read(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Folder folder;
    static const FileBytes movie = realMovie();
    if (size == 0)
        return 0;
    const FileBytes input = data[0] % 4 == 0 ? FileBytes(data + 1, data + size) : changed(movie, data + 1, size - 1);
    const std::filesystem::path pieces = folder.path() / "Movie.mov.unfinished";
    std::ofstream(pieces, std::ios::binary)
        .write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));

    const std::clock_t begin = std::clock();
    const auto movies = MovieRecovery().recover(folder.path());
    require(std::clock() - begin < 10 * CLOCKS_PER_SEC);

    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        files.push_back(entry.path());
    require(files.size() == movies.size() && files.size() <= 1);
    if (movies.empty())
        return 0;
    require(files[0] == movies[0].file);
    const FileBytes left = read(files[0]);
    if (movies[0].error) {
        // A piece that was cut off may have gone.
        require(left.size() <= input.size() && std::equal(left.begin(), left.end(), input.begin()));
    } else {
        std::filesystem::rename(files[0], pieces);
        auto place = MoviePlace::claim(pieces);
        require(place && *place && finalizeMovie(**place) == FinalizedMovie::ordinary);
        require(read(pieces) == left);
        files[0] = pieces;
    }
    std::filesystem::remove(files[0]);
    return 0;
}
