#pragma once

#include "platform/camera_pictures/camera_format.h"

#include <array>
#include <cstdint>
#include <optional>
#include <spa/pod/pod.h>
#include <vector>

namespace nimbrale::pipewire {

/// What is told to the daemon when a stream is set up. The texts lie in the object itself.
class StreamParameters {
public:
    StreamParameters() = default;
    StreamParameters(const StreamParameters&) = delete;
    StreamParameters& operator=(const StreamParameters&) = delete;

    /// The formats that are understood, the most wanted ones first: near 1280 × 720 at about 30 pictures a second, and
    /// what needs no decoding before what does.
    void offerFormats();
    /// Pictures in memory that this process can read, with what their writer says of them.
    void askForBuffers();

    /// For the library, until this object goes.
    [[nodiscard]] std::vector<const spa_pod*>& list() { return list_; }

private:
    alignas(8) std::array<std::uint8_t, 4096> bytes_{};
    std::vector<const spa_pod*> list_;
};

/// The format that a camera was set to; empty for one that was not offered, and for a size that no camera has.
[[nodiscard]] std::optional<CameraFormat> parseFormat(const spa_pod* parameter);

} // namespace nimbrale::pipewire
