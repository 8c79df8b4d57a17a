#pragma once

#include "platform/ffmpeg/movie_head.h"
#include "platform/result.h"

#include <cstdint>
#include <vector>

namespace nimbrale::ffmpeg {

/// A movie file as its writer has left it.
struct MoviePieces {
    enum class Kind {
        pieces,   ///< there are whole ones with pictures
        ordinary, ///< an ordinary movie already
        empty,    ///< there is no whole piece with a picture, and nothing that could have been one
    };

    Kind kind = Kind::empty;
    // The rest is for pieces alone.
    /// Where the `moov` before the pieces begins in the file.
    std::int64_t headOffset = 0;
    /// Its content.
    std::vector<std::uint8_t> head;
    /// With the samples of all whole pieces.
    std::vector<MovieTrack> tracks;
    /// Where the index goes: behind the last whole piece. What the file has from there on is the beginning of a piece,
    /// or an index that was not finished. Where something else follows, which might still be worth something, this is
    /// the file's end.
    std::int64_t end = 0;
};

/// Reads what there is in the file, but no media. However wrong the file is, this takes little memory and time. Fails
/// with ErrorCode::temporary when it cannot be read, with ErrorCode::unsupported when somebody else may have written
/// it, and with ErrorCode::permanent when it is no movie. The message is for the log.
[[nodiscard]] Result<MoviePieces> readPieces(int file);

} // namespace nimbrale::ffmpeg
