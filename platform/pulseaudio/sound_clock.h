#pragma once

#include "platform/sound_pieces.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

namespace nimbrale::pulseaudio {

/// Gives pieces of sound at 48000 Hz their times. The times that the server measures waver from piece to piece by far
/// more than a device's clock drifts: a piece begins where the one before ended, until the measured times agree, by
/// their median, that this is wrong. What is off by much is seen in half a second, the rest in two. Not thread-safe.
class SoundClock {
public:
    /// How far the counted time may be off, by the median of `fineSpan`, and by that of the first `comparedSpan`, since
    /// the first time of all may be off by any wavering.
    static constexpr std::chrono::milliseconds tolerance{4};
    /// The same by the median of any `comparedSpan`, which wavers itself.
    static constexpr std::chrono::milliseconds coarseTolerance{20};
    /// What is this far off is no wavering: sound was lost, and the measured time counts at once.
    static constexpr std::chrono::milliseconds largestWavering{500};
    /// How much sound the measured times are compared over.
    static constexpr std::chrono::milliseconds comparedSpan{500};
    static constexpr std::chrono::milliseconds fineSpan{2000};

    /// `measured` is when the first sample was heard. Empty where all of the piece overlaps the one before.
    [[nodiscard]] std::optional<SoundPlace> place(std::chrono::nanoseconds measured, std::size_t samples);
    /// So many samples were lost before the next piece.
    void leaveOut(std::size_t samples) { counted_ += static_cast<std::int64_t>(samples); }
    /// The next piece is the first of another stream.
    void restart() { isRestarted_ = true; }

private:
    struct Comparison {
        std::chrono::nanoseconds error{}; ///< measured less counted
        std::int64_t samples = 0;
    };

    [[nodiscard]] std::chrono::nanoseconds end() const;
    [[nodiscard]] std::chrono::nanoseconds correction(std::chrono::nanoseconds error, std::int64_t samples);
    void compare(std::chrono::nanoseconds error, std::int64_t samples);
    [[nodiscard]] std::chrono::nanoseconds agreedError();
    [[nodiscard]] std::chrono::nanoseconds medianError(std::int64_t samples) const;
    void forgetComparisons();
    void moveTo(std::chrono::nanoseconds time);

    /// Where counting began; absent before the first piece.
    std::optional<std::chrono::nanoseconds> origin_;
    std::int64_t counted_ = 0; ///< samples since then
    std::int64_t overlap_ = 0; ///< samples to come that belong before the end of what was placed
    bool isRestarted_ = false;
    bool isConfirmed_ = false; ///< the time that was measured first since the last jump was compared with later ones
    std::deque<Comparison> comparisons_;
    std::int64_t compared_ = 0; ///< samples in them
};

} // namespace nimbrale::pulseaudio
