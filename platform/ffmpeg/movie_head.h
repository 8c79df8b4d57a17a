#pragma once

#include "platform/ffmpeg/movie_fragment.h"
#include "platform/result.h"

#include <cstdint>
#include <vector>

namespace nimbrale::ffmpeg {

struct MovieTrack {
    FragmentTrack fragments;
    bool isVideo = false;
    /// Units of its times in a second; at least 1.
    std::uint32_t timescale = 1;
    /// What its times are moved by when it is shown, in its units.
    std::int64_t shift = 0;
    SampleTable samples;
};

/// The tracks of the `moov` with this content, which stands before the pieces of a movie. Fails with
/// ErrorCode::unsupported on what may be right but is written by others, and with ErrorCode::permanent on what is
/// wrong.
[[nodiscard]] Result<std::vector<MovieTrack>> readHead(Bytes content);

/// The `moov` of an ordinary movie: what `head`, of which `tracks` were read, says of the tracks, and where their
/// samples are. Tracks without samples are left out; there must be one that has some. Fails where their times cannot be
/// expressed.
[[nodiscard]] Result<std::vector<std::uint8_t>> writeIndex(Bytes head, const std::vector<MovieTrack>& tracks);

} // namespace nimbrale::ffmpeg
