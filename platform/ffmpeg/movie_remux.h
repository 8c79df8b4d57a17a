#pragma once

#include "platform/result.h"

namespace nimbrale::ffmpeg {

/// Writes an ordinary movie of what can be read of the movie in `from` into the empty file `to`: the way for pieces
/// that cannot be finished where they are. Takes as much disk again. Fails where much of the media could not be read.
/// The error's message is for the log. On any thread.
[[nodiscard]] Result<void> remuxMovie(int from, int to);

} // namespace nimbrale::ffmpeg
