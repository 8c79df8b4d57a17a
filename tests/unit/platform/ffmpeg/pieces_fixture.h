#pragma once

#include "platform/ffmpeg/movie_boxes.h"
#include "platform/ffmpeg/movie_index.h"
#include "platform/ffmpeg/movie_place.h"
#include "tests/fakes/log_capture.h"
#include "tests/unit/platform/ffmpeg/piece_movie.h"
#include "tests/unit/platform/ffmpeg/played_movie.h"

#include <QTemporaryDir>
#include <gmock/gmock.h>

#include <fstream>
#include <iterator>

namespace nimbrale::ffmpeg {

/// A folder for a movie's pieces, and what movies in pieces hold.
class PiecesFixture : public testing::Test {
protected:
    using FileBytes = std::vector<std::uint8_t>;
    static constexpr std::int64_t second = PieceMovieContent::second;

    QTemporaryDir temporary;
    std::filesystem::path folder = temporary.path().toStdString();
    std::filesystem::path movie = folder / "Movie.mov";
    std::filesystem::path pieces = folder / "Movie.mov.unfinished";
    LogCapture log;

    /// What the encoders say of themselves would hide what fails.
    PiecesFixture() { av_log_set_level(AV_LOG_FATAL); }

    static PieceMovieContent pictures(std::int64_t end)
    {
        PieceMovieContent content;
        content.pictureTimes = PieceMovie::irregularTimes(end);
        content.end = end;
        return content;
    }
    static PieceMovieContent picturesAndSound(std::int64_t end)
    {
        PieceMovieContent content = pictures(end);
        content.tick = 2 * 48000 + 345;
        return content;
    }

    static void write(const std::filesystem::path& file, Bytes bytes)
    {
        std::ofstream stream(file, std::ios::binary);
        stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    static FileBytes read(const std::filesystem::path& file)
    {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    [[nodiscard]] std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            found.push_back(entry.path().filename());
        return found;
    }

    /// Of the file's outermost boxes, as long as they are whole.
    static std::vector<Box> boxesOf(Bytes bytes)
    {
        std::vector<Box> boxes;
        while (const auto header = readBoxHeader(bytes)) {
            if (header->size > static_cast<std::int64_t>(bytes.size()))
                break;
            const Bytes whole = bytes.first(static_cast<std::size_t>(header->size));
            boxes.push_back({header->type, whole, whole.subspan(header->length)});
            bytes = bytes.subspan(whole.size());
        }
        return boxes;
    }
    static std::vector<std::string> boxTypesOf(Bytes bytes)
    {
        std::vector<std::string> types;
        for (const Box& box : boxesOf(bytes)) {
            std::string type;
            for (int shift = 24; shift >= 0; shift -= 8)
                type += static_cast<char>(box.type >> shift);
            types.push_back(type);
        }
        return types;
    }

    Result<FinalizedMovie> finalize(Bytes bytes)
    {
        write(pieces, bytes);
        auto place = MoviePlace::claim(pieces);
        EXPECT_TRUE(place && *place);
        return finalizeMovie(**place);
    }

    /// Whether these are the content's first pictures, at their times.
    static void expectPictures(const PlayedMovie& played, const PieceMovieContent& content, std::size_t count)
    {
        ASSERT_EQ(played.pictures().size(), count);
        for (std::size_t i = 0; i < count; ++i) {
            EXPECT_EQ(played.pictures()[i].tick, content.pictureTimes[i]) << "picture " << i;
            EXPECT_NEAR(played.pictures()[i].lumaAt(0, 0), PieceMovie::brightness(i), 8) << "picture " << i;
        }
    }
};

} // namespace nimbrale::ffmpeg
