#pragma once

#include "platform/audio_buffer.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace nimbrale {

/// Makes one stereo track of the microphone and the system's sound: puts each piece where its time says, counted from
/// the first video frame, adds up what lies at the same place, and hands the track out piece by piece, 0.3 s behind the
/// newest sample, so that the slower source has time to arrive. All sound is taken to have 48000 samples a second. Not
/// thread-safe.
class AudioMixer {
public:
    /// A finished stretch of the track. Each one begins where the one before ended.
    struct Output {
        AudioBuffer audio; ///< interleaved stereo at 48000 Hz, each sample between -1 and 1
        /// Of the first sample, to the nearest nanosecond. Rounding does not add up from one stretch to the next.
        std::chrono::nanoseconds presentationTime{};
    };

    /// How far behind the newest sample a piece may begin. What begins later is taken to have a wrong time and is
    /// ignored, which is logged once: the silence before it would have to be held in memory, 230 megabytes of it for
    /// this length.
    static constexpr std::chrono::minutes longestSilence{10};

    /// When sample 0 of the track is: the time of the first video frame. Sound is ignored until it is set.
    std::optional<std::chrono::nanoseconds> startTime;

    /// `presentationTime` is that of the first sample, on the clock of `startTime`. One channel goes to both sides; of
    /// more than two, the first two count. Samples from before what was handed out already, or from before the start,
    /// are dropped. A buffer without channels or samples, or with a last moment that is incomplete, is ignored.
    void add(const AudioBuffer& audio, std::chrono::nanoseconds presentationTime);
    /// What is finished, if anything is; with `flush` the last 0.3 s too, at the end of a recording.
    [[nodiscard]] std::optional<Output> output(bool flush);

private:
    [[nodiscard]] bool isTooFarAhead(std::int64_t offset);

    std::vector<float> left_;  ///< from sample `bufferStart_` of the track on
    std::vector<float> right_; ///< as many as `left_`
    std::int64_t bufferStart_ = 0;
    std::int64_t latestEnd_ = 0; ///< one past the newest sample of the track
    bool hasLoggedFarTime_ = false;
};

} // namespace nimbrale
