#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <pulse/pulseaudio.h>

namespace nimbrale::pulseaudio {

/// Tells when the samples of a stream that is recorded were heard, by what the server answers from time to time. The
/// library's own reckoning goes by the time of day, which may be set at any moment: it is wrong by as much then, for
/// seconds. Here the answers are timed by CLOCK_MONOTONIC alone. One thread.
class StreamTimes {
public:
    /// An answer that took longer than this is not believed where there is an earlier one: it was at the server at any
    /// moment of that time.
    static constexpr std::chrono::milliseconds longestAnswer{20};

    /// The server was asked at `asked`, and its answer came at `answered`.
    void note(const pa_timing_info& answer, const pa_sample_spec& format, std::chrono::nanoseconds asked,
              std::chrono::nanoseconds answered);
    /// When the sample at that place of the stream, in bytes from its beginning, was heard, or will be: a loudspeaker
    /// gives away what it is about to play. Absent before the first answer.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> timeOf(std::int64_t place) const;
    /// Another stream begins.
    void restart() { origin_.reset(); }

private:
    /// When a sample at the beginning of the stream would have been heard, going by the newest answer.
    std::optional<std::chrono::nanoseconds> origin_;
    pa_sample_spec format_{};
};

} // namespace nimbrale::pulseaudio
