#pragma once

#include "platform/ffmpeg/movie_place.h"
#include "platform/result.h"

namespace nimbrale::ffmpeg {

enum class FinalizedMovie {
    ordinary, ///< an ordinary movie: it became one, or was one already
    empty,    ///< not a single picture is whole; the file is as it was
};

/// Makes an ordinary movie (`ftyp`, `mdat`, `moov`) of the pieces (`ftyp`, `moov`, then pairs of `moof` and `mdat`), of
/// which the last may be cut off anywhere. No media is read or copied: an index of all pieces is appended, and then the
/// head becomes the header of one large `mdat`. The file is on the disk when this returns. A crash at any moment leaves
/// what the next call finishes. Where that cannot be done, the pieces are copied into a new file that takes their
/// place.
///
/// Zero of the pieces' times is the movie's beginning. The first picture is shown from there on; sound that begins
/// later or earlier stays where it belongs, to the sample. Each picture stays until the next one, the last as long as
/// the pieces say.
///
/// After an error the pieces are as they were, but for the cut one at the end; its message tells where they are. The
/// place's descriptor may be another afterwards. On any thread.
[[nodiscard]] Result<FinalizedMovie> finalizeMovie(MoviePlace& place);

} // namespace nimbrale::ffmpeg
