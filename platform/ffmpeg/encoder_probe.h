#pragma once

#include "platform/ffmpeg/hardware_encoder.h"
#include "platform/movie_writer.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace nimbrale::ffmpeg {

/// What the probe program is asked.
struct ProbeQuestion {
    MovieVideo video;
    HardwareEncoder encoder;

    /// As the program's arguments.
    [[nodiscard]] std::vector<std::string> arguments() const;
    /// Nothing when these are not such arguments.
    [[nodiscard]] static std::optional<ProbeQuestion> read(std::span<const char* const> arguments);
    /// What the program prints where the encoder works, and ends with success.
    [[nodiscard]] std::string confirmation() const;

    bool operator==(const ProbeQuestion&) const = default;
};

/// Encodes pictures with this very encoder and decodes them again. Fails, and says why in a sentence for a log, unless
/// every picture's packet came at once and in order, can be shown with the movie's header alone, is a key picture where
/// one was asked for, and looks as it was: size, profile, colors, and each edge at its pixel.
///
/// Drivers crash and hang in this. Only in a process of its own; any thread.
[[nodiscard]] Result<void> probeEncoder(const ProbeQuestion& question);

} // namespace nimbrale::ffmpeg
