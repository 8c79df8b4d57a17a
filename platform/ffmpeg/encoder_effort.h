#pragma once

#include "platform/movie_writer.h"

#include <chrono>
#include <cstddef>
#include <optional>

namespace nimbrale::ffmpeg {

/// How much the processor does for the picture's quality.
enum class EncoderEffort {
    careful, ///< sharper at the same bit rate
    quick    ///< about half the work
};

/// What to begin with on a machine of so many processors, the sharing's own work considered.
[[nodiscard]] EncoderEffort initialEffort(const MovieVideo& video, unsigned processors);
/// On how many of them the pictures are encoded; at least 1.
[[nodiscard]] int encoderThreads(unsigned processors);

/// Watches the queue of pictures in front of an encoder for whether it keeps filling up. One thread.
class QueueWatch {
public:
    /// A short burst of work elsewhere is over before.
    static constexpr std::chrono::nanoseconds usualPatience = std::chrono::seconds(1);

    /// The queue may hold `capacity` pictures.
    explicit QueueWatch(std::size_t capacity, std::chrono::nanoseconds patience = usualPatience)
        : capacity_(capacity), patience_(patience)
    {}

    /// At `now`, when a picture left the queue, `waiting` were in it, that one included. The times of one clock.
    void note(std::size_t waiting, std::chrono::nanoseconds now);
    /// Whether the queue has been half full for as long as the patience.
    [[nodiscard]] bool isOverloaded() const { return isOverloaded_; }

private:
    std::size_t capacity_;
    std::chrono::nanoseconds patience_;
    std::optional<std::chrono::nanoseconds> fullSince_;
    bool isOverloaded_ = false;
};

} // namespace nimbrale::ffmpeg
