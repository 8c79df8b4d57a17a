#pragma once

#include "platform/ffmpeg/hardware_search.h"
#include "platform/main_queue.h"
#include "platform/movie_writer.h"

#include <memory>

namespace nimbrale::ffmpeg {

/// Movies by FFmpeg's libraries, encoded by what `means` finds or else by the processor. Main thread; the queue must
/// outlive them. Their destructor waits two seconds at most for a movie that is being begun, which is removed, and for
/// recoveries that are under way, whose completions are then not called; and it ends a search.
[[nodiscard]] std::unique_ptr<Movies> createFfmpegMovies(MainQueue& mainQueue, HardwareSearch::Means means);

} // namespace nimbrale::ffmpeg
