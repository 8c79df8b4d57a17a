#pragma once

#include "platform/main_queue.h"
#include "platform/movie_writer.h"

#include <memory>

namespace nimbrale::ffmpeg {

/// Movies by FFmpeg's libraries. Main thread; the queue must outlive them. Their destructor waits for a recovery that
/// is under way, whose completion is then not called.
[[nodiscard]] std::unique_ptr<Movies> createFfmpegMovies(MainQueue& mainQueue);

} // namespace nimbrale::ffmpeg
