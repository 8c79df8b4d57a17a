#pragma once

#include "platform/sound_pieces.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace nimbrale::pipewire {

/// A measured time that is older than this, or later than now, is none.
constexpr std::chrono::seconds longestSoundDelay{2};

/// `measured`, or where that is none, the time of a piece at 48000 Hz that ends at `now`. Takes no lock and no memory.
[[nodiscard]] std::chrono::nanoseconds plausibleTime(std::chrono::nanoseconds measured, std::chrono::nanoseconds now,
                                                     std::size_t samples);

/// Gives pieces of sound at 48000 Hz their times. What the daemon measures wavers by less than a device's clock drifts
/// in a minute: as long as both agree well enough, a piece begins where the one before ended, and when they do not, the
/// measured time counts. Not thread-safe.
class SoundTimeline {
public:
    /// How far the counted time may be off.
    static constexpr std::chrono::milliseconds tolerance{2};

    /// `measured` is when the first sample was heard. Empty where all of the piece overlaps the one before.
    [[nodiscard]] std::optional<SoundPlace> place(std::chrono::nanoseconds measured, std::size_t samples);

private:
    [[nodiscard]] std::chrono::nanoseconds end() const;

    /// Where counting began; absent before the first piece.
    std::optional<std::chrono::nanoseconds> origin_;
    std::int64_t counted_ = 0; ///< samples since then
};

} // namespace nimbrale::pipewire
