#pragma once

#include "platform/ffmpeg/hardware_encoder.h"
#include "platform/movie_writer.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale::ffmpeg {

/// Finds an encoder on a graphics card that really works, by a program that tries it in a process of its own.
class HardwareSearch {
public:
    struct Means {
        std::vector<HardwareEncoder> candidates;
        /// Is given a `ProbeQuestion`.
        std::filesystem::path program;
        /// How long the program may take for one.
        std::chrono::milliseconds patience = std::chrono::seconds(5);
        /// How long an encoder may take to open, for each picture of a movie, and to close.
        std::chrono::milliseconds encoderPatience = std::chrono::seconds(3);

        /// What this machine may have, and the program that lies beside the application's own.
        [[nodiscard]] static Means ofThisMachine();
    };

    explicit HardwareSearch(Means means) : means_(std::move(means)) {}

    /// Whether there is anything to look for. Any thread.
    [[nodiscard]] bool hasCandidates() const { return !means_.candidates.empty(); }
    /// The first candidate that works for such movies; tried once for each kind of movie, and waited for. One line of
    /// the log says what came out. One thread at a time.
    [[nodiscard]] std::optional<HardwareEncoder> find(const MovieVideo& video);
    /// An encoder failed in a movie: none is found any more. Any thread.
    void distrust() { isTrusted_ = false; }
    /// The search under way ends within a moment, without a result. Any thread.
    void stop() { isStopping_ = true; }

private:
    [[nodiscard]] std::optional<HardwareEncoder> tryAll(const MovieVideo& video) const;
    /// Why the candidate does not work; empty when it does.
    [[nodiscard]] std::string problemOf(const HardwareEncoder& candidate, const MovieVideo& video) const;

    Means means_;
    std::vector<std::pair<MovieVideo, std::optional<HardwareEncoder>>> known_;
    std::atomic<bool> isTrusted_ = true;
    std::atomic<bool> isStopping_ = false;
};

} // namespace nimbrale::ffmpeg
