#pragma once

#include "platform/movie_writer.h"
#include "tests/fakes/fake_main_queue.h"

#include <chrono>
#include <memory>
#include <optional>
#include <thread>

namespace nimbrale::ffmpeg {

/// What the beginning of a movie comes to; an error of its own where it comes to nothing.
inline Result<std::unique_ptr<MovieWriter>> beginMovie(Movies& movies, FakeMainQueue& queue,
                                                       const MovieSettings& settings)
{
    std::optional<Result<std::unique_ptr<MovieWriter>>> begun;
    const Subscription beginning = movies.create(settings, [&](auto writer) { begun.emplace(std::move(writer)); });
    for (int attempt = 0; attempt < 10'000 && !begun; ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        queue.runPosted();
    }
    return begun ? *std::move(begun) : fail(ErrorCode::temporary, "Nobody answers.");
}

} // namespace nimbrale::ffmpeg
