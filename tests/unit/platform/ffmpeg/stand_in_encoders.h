#pragma once

#include "platform/ffmpeg/hardware_encoder.h"
#include "platform/movie_writer.h"
#include "tests/fakes/fake_main_queue.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace nimbrale::ffmpeg {

/// Stands for a graphics card that works: no test machine has one. Like one, it takes NV12.
inline HardwareEncoder workingEncoder()
{
    return {"libx264", "", "preset=ultrafast:tune=zerolatency:profile=high:forced-idr=1:x264-params=8x8dct=1"};
}

/// A program in that folder, of these lines of shell; `$1` and so on are what it is asked.
inline std::filesystem::path standInProgram(const std::filesystem::path& folder, const std::string& lines)
{
    const std::filesystem::path program = folder / "probe";
    std::ofstream(program) << "#!/bin/sh\n" << lines << "\n";
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    return program;
}

/// Whether the preparation ends by itself, without its time being up. Its completion comes on `queue`.
inline bool isPrepared(Movies& movies, const MovieVideo& video, FakeMainQueue& queue)
{
    bool isDone = false;
    movies.prepare(video, [&] { isDone = true; });
    for (int attempt = 0; attempt < 2000 && !isDone; ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        queue.runPosted();
    }
    return isDone;
}

} // namespace nimbrale::ffmpeg
